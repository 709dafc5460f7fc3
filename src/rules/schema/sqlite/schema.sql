-- The rules database: tables, keys and the cascades that keep it consistent.
--
-- Every statement may run again on a database that has it already (IF NOT EXISTS), so loading
-- the schema twice changes nothing. Ids are GUID texts and, as names, compare without regard to
-- letter case. Dates are stored as "yyyy-mm-dd hh:mm:ss[.fff]" text so that they sort as dates.
--
-- Cascades: the three foreign keys of the run history are real keys. Everything else that must
-- go with a deleted row goes through a trigger, because definitions may be saved child first
-- (a field before its dataset, a task before its package) and a dataset's parent may lie outside
-- its template: a foreign key would refuse those rows.

-- ---- templates -------------------------------------------------------------------------------

CREATE TABLE IF NOT EXISTS datapages (
  datapage_id   VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  display_name  VARCHAR(255) COLLATE NOCASE,
  description   VARCHAR(4000),
  db_name       VARCHAR(255),
  date_created  DATETIME,
  date_modified DATETIME
);

CREATE TABLE IF NOT EXISTS entities (
  entity_id           VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  datapage_id         VARCHAR(50) COLLATE NOCASE,
  entity_name         VARCHAR(255) COLLATE NOCASE,
  description         VARCHAR(4000),
  table_name          VARCHAR(255),
  pk_column_name      VARCHAR(255),
  db_conn_str         VARCHAR(4000),
  init_string         VARCHAR(4000),
  parent_entity_id    VARCHAR(50) COLLATE NOCASE,
  child_order_on_page SMALLINT,
  is_pk_surrogate     BIT
);
CREATE INDEX IF NOT EXISTS ix_entities_datapage ON entities (datapage_id);
CREATE INDEX IF NOT EXISTS ix_entities_parent ON entities (parent_entity_id);

CREATE TABLE IF NOT EXISTS attributes (
  attribute_id VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  entity_id    VARCHAR(50) COLLATE NOCASE,
  column_name  VARCHAR(255),
  start_tag    VARCHAR(4000),
  end_tag      VARCHAR(4000),
  step         SMALLINT,
  is_pk        BIT,
  column_type  VARCHAR(3000) NULL,
  column_size  INT,
  is_optional  BIT
);
CREATE INDEX IF NOT EXISTS ix_attributes_entity ON attributes (entity_id);

CREATE TABLE IF NOT EXISTS ui_datapages (
  datapage_id            VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  template_filename      VARCHAR(1000),
  template_path          VARCHAR(2000),
  template_url           VARCHAR(2000),
  calculate_object_names BIT
);

CREATE TABLE IF NOT EXISTS ui_entities (
  entity_id          VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  start              INT,
  end_pos            INT,
  occur_count        INT,
  auto_calc_col_size BIT,
  SelStart           INT,
  SelLength          INT,
  SubSelStart        INT,
  SubSelLength       INT
);

CREATE TABLE IF NOT EXISTS ui_attributes (
  attribute_id               VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  display_name               VARCHAR(255),
  description                VARCHAR(4000),
  selection_start            INT,
  selection_length           INT,
  sample_attribute_start     INT,
  sample_attribute_length    INT,
  sub_selection_attrib_start INT,
  sample_attribute_text      TEXT,
  start_tag_min_length       INT,
  end_tag_min_length         INT
);

-- ---- packages --------------------------------------------------------------------------------

CREATE TABLE IF NOT EXISTS jobs (
  job_id        VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  job_name      VARCHAR(255) COLLATE NOCASE,
  description   VARCHAR(4000),
  date_created  DATETIME,
  date_modified DATETIME
);

CREATE TABLE IF NOT EXISTS tasks (
  task_id             VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  job_id              VARCHAR(50) COLLATE NOCASE,
  task_name           VARCHAR(255) COLLATE NOCASE,
  description         TEXT,
  datapage_id         VARCHAR(50) NULL COLLATE NOCASE,
  step                INT,
  source_type         INT,
  throttle_wait_msecs INT
);
CREATE INDEX IF NOT EXISTS ix_tasks_job ON tasks (job_id);
CREATE INDEX IF NOT EXISTS ix_tasks_datapage ON tasks (datapage_id);

CREATE TABLE IF NOT EXISTS doc_locations (
  doc_location_id VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  task_id         VARCHAR(50) COLLATE NOCASE,
  source_type     INT,
  source          TEXT,
  conn_str        VARCHAR(4000),
  db_name         VARCHAR(255)
);
CREATE INDEX IF NOT EXISTS ix_doc_locations_task ON doc_locations (task_id);

-- ---- reference data --------------------------------------------------------------------------

-- Each code table maps a determinant d (a percentage) to the one row with
-- min_determinant <= d < max_determinant; the bands of a table cover every number.
CREATE TABLE IF NOT EXISTS job_success_codes (
  job_success_code_id SMALLINT NOT NULL PRIMARY KEY,
  display_name        VARCHAR(50) NOT NULL,
  min_determinant     REAL NOT NULL,
  max_determinant     REAL NOT NULL
);
CREATE TABLE IF NOT EXISTS task_success_codes (
  task_success_code_id SMALLINT NOT NULL PRIMARY KEY,
  display_name         VARCHAR(50) NOT NULL,
  min_determinant      REAL NOT NULL,
  max_determinant      REAL NOT NULL
);
CREATE TABLE IF NOT EXISTS doc_success_codes (
  doc_success_code_id SMALLINT NOT NULL PRIMARY KEY,
  display_name        VARCHAR(50) NOT NULL,
  min_determinant     REAL NOT NULL,
  max_determinant     REAL NOT NULL
);
CREATE TABLE IF NOT EXISTS entity_success_codes (
  entity_success_code_id SMALLINT NOT NULL PRIMARY KEY,
  display_name           VARCHAR(50) NOT NULL,
  min_determinant        REAL NOT NULL,
  max_determinant        REAL NOT NULL
);

CREATE TABLE IF NOT EXISTS custom_column_groups (
  group_id   INTEGER NOT NULL PRIMARY KEY,
  group_name VARCHAR(100) NOT NULL
);

CREATE TABLE IF NOT EXISTS Custom_Columns (
  custom_col_id     INTEGER PRIMARY KEY,
  group_id          INT,
  class_member_name VARCHAR(100),
  display_name      VARCHAR(100),
  description       VARCHAR(1000),
  datatype_id       VARCHAR(50),
  column_length     INT,
  column_name       VARCHAR(128),
  default_value     VARCHAR(255),
  appearance_order  INT,
  default_selection INT
);

-- The custom columns chosen for a dataset, in the order they were chosen.
CREATE TABLE IF NOT EXISTS entity_custom_columns (
  entity_custom_column_id INTEGER PRIMARY KEY,
  entity_id               VARCHAR(50) NOT NULL COLLATE NOCASE,
  custom_col_id           INTEGER NOT NULL
                          REFERENCES Custom_Columns (custom_col_id) ON DELETE CASCADE,
  UNIQUE (entity_id, custom_col_id)
);

CREATE TABLE IF NOT EXISTS providers (
  provider_id      VARCHAR(100) NOT NULL COLLATE NOCASE PRIMARY KEY,
  page_length      INT,
  max_varchar_size INT,
  max_name_length  INT
);

CREATE TABLE IF NOT EXISTS file_ext_map (
  url_file_ext     VARCHAR(20) NOT NULL COLLATE NOCASE PRIMARY KEY,
  save_as_file_ext VARCHAR(20) NOT NULL
);

CREATE TABLE IF NOT EXISTS file_extensions (
  file_ext            VARCHAR(20) NOT NULL COLLATE NOCASE PRIMARY KEY,
  mime_type           VARCHAR(255) COLLATE NOCASE,
  http_default        BIT NOT NULL DEFAULT 0,
  file_system_default BIT NOT NULL DEFAULT 0,
  ftp_default         BIT NOT NULL DEFAULT 0,
  unknown_default     BIT NOT NULL DEFAULT 0,
  invalid_default     BIT NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS settings (
  name     VARCHAR(255) NOT NULL COLLATE NOCASE PRIMARY KEY,
  val      VARCHAR(4000),
  datatype VARCHAR(10)
);

-- Highlighting rules of the design tool, by document type: text from start_token to end_token
-- is shown in fore_color.
CREATE TABLE IF NOT EXISTS hiliters (
  hiliter_id   INTEGER PRIMARY KEY,
  doc_type     VARCHAR(50) NOT NULL COLLATE NOCASE,
  display_name VARCHAR(100),
  start_token  VARCHAR(100),
  end_token    VARCHAR(100),
  fore_color   VARCHAR(20),
  is_bold      BIT,
  sort_order   INT
);

-- ---- run history -----------------------------------------------------------------------------

CREATE TABLE IF NOT EXISTS job_instances (
  job_id              VARCHAR(50) NOT NULL COLLATE NOCASE,
  job_start_time      DATETIME NOT NULL,
  job_completion_time DATETIME NULL,
  completion_code     SMALLINT,
  PRIMARY KEY (job_id, job_start_time)
);

CREATE TABLE IF NOT EXISTS task_instances (
  task_id              VARCHAR(50) NOT NULL COLLATE NOCASE,
  job_id               VARCHAR(50) NOT NULL COLLATE NOCASE,
  job_start_time       DATETIME NOT NULL,
  task_start_time      DATETIME,
  task_completion_time DATETIME NULL,
  completion_code      SMALLINT,
  PRIMARY KEY (task_id, job_id, job_start_time)
);
CREATE INDEX IF NOT EXISTS ix_task_instances_run ON task_instances (job_id, job_start_time);

CREATE TABLE IF NOT EXISTS task_instance_docs (
  doc_id                     VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY,
  task_id                    VARCHAR(50) COLLATE NOCASE,
  job_id                     VARCHAR(50) COLLATE NOCASE,
  job_start_time             DATETIME,
  uri                        VARCHAR(4000),
  temp_uri                   VARCHAR(4000),
  copy_completion_code       VARCHAR(4000),
  copy_completion_time       DATETIME,
  doc_start_time             DATETIME,
  doc_completion_time        DATETIME,
  copy_try_count             SMALLINT DEFAULT 0,
  extraction_completion_code SMALLINT,
  -- What the targets did with the document's rows: null until it was extracted (and for one that
  -- could not be read); the first refusal's reason, the target's own message.
  rows_written               INT NULL,
  rows_refused               INT NULL,
  refusal                    VARCHAR(4000) NULL,
  crawl_depth                SMALLINT,
  CONSTRAINT FK_task_instance_docs_task_instances
    FOREIGN KEY (task_id, job_id, job_start_time)
    REFERENCES task_instances (task_id, job_id, job_start_time) ON DELETE CASCADE
);
CREATE INDEX IF NOT EXISTS ix_task_instance_docs_job
  ON task_instance_docs (job_id, job_start_time);
-- A crawl's queue: whether an address is known to the run, the rows still to fetch, and the
-- fetched rows whose links have not been read, each found without reading the rest of the run.
-- The first serves every look-up of a task's rows in a run as well (its first three columns).
CREATE INDEX IF NOT EXISTS ix_task_instance_docs_uri
  ON task_instance_docs (task_id, job_id, job_start_time, uri);
CREATE INDEX IF NOT EXISTS ix_task_instance_docs_open
  ON task_instance_docs (job_id, task_id, job_start_time)
  WHERE (copy_completion_code <> 'Success') AND (copy_try_count < 10);
CREATE INDEX IF NOT EXISTS ix_task_instance_docs_unread
  ON task_instance_docs (job_id, task_id, job_start_time)
  WHERE temp_uri IS NOT NULL AND temp_uri <> '' AND extraction_completion_code = 0;

CREATE TABLE IF NOT EXISTS task_inst_doc_results_by_ent (
  doc_id            VARCHAR(50) NOT NULL COLLATE NOCASE,
  entity_id         VARCHAR(50) NOT NULL COLLATE NOCASE,
  ent_occur_count   INT,
  ent_extract_count INT,
  avg_success_coeff REAL,
  success_code      SMALLINT,
  error_count       INT,
  avg_error_count   REAL,
  rows_refused      INT NULL,
  refusal           VARCHAR(4000) NULL,
  PRIMARY KEY (doc_id, entity_id),
  CONSTRAINT FK_task_inst_doc_results_by_ent_task_instance_docs
    FOREIGN KEY (doc_id) REFERENCES task_instance_docs (doc_id) ON DELETE CASCADE,
  CONSTRAINT FK_task_inst_doc_results_by_ent_entity_success_codes
    FOREIGN KEY (success_code) REFERENCES entity_success_codes (entity_success_code_id)
    ON UPDATE CASCADE
);

-- ---- cascades --------------------------------------------------------------------------------

-- A package takes its tasks (and through them their document sources) and its run history.
CREATE TRIGGER IF NOT EXISTS trg_jobs_delete AFTER DELETE ON jobs
BEGIN
  DELETE FROM tasks WHERE job_id = old.job_id;
  DELETE FROM task_instances WHERE job_id = old.job_id;
  DELETE FROM job_instances WHERE job_id = old.job_id;
END;

CREATE TRIGGER IF NOT EXISTS trg_tasks_delete AFTER DELETE ON tasks
BEGIN
  DELETE FROM doc_locations WHERE task_id = old.task_id;
END;

-- A template takes its datasets, a dataset its fields and its custom-column choices; the
-- design-time rows go with the rows they describe.
CREATE TRIGGER IF NOT EXISTS trg_datapages_delete AFTER DELETE ON datapages
BEGIN
  DELETE FROM entities WHERE datapage_id = old.datapage_id;
  DELETE FROM ui_datapages WHERE datapage_id = old.datapage_id;
END;

CREATE TRIGGER IF NOT EXISTS trg_entities_delete AFTER DELETE ON entities
BEGIN
  DELETE FROM attributes WHERE entity_id = old.entity_id;
  DELETE FROM entity_custom_columns WHERE entity_id = old.entity_id;
  DELETE FROM ui_entities WHERE entity_id = old.entity_id;
END;

CREATE TRIGGER IF NOT EXISTS trg_attributes_delete AFTER DELETE ON attributes
BEGIN
  DELETE FROM ui_attributes WHERE attribute_id = old.attribute_id;
END;
