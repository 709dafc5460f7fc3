-- The upgrade of the rules database, run when a process first opens a store of an older schema
-- version, and by "gleanwright init".
--
-- Each step starts with a header "-- step: name" and a guard line, either
-- "-- run-if-rows: <query>" (the step runs when the query yields a row) or
-- "-- run-if-no-rows: <query>" (it runs when the query yields none). Its statements run as one
-- transaction. A step that has been applied makes its guard fail, so running the upgrade again
-- changes nothing.
--
-- A step keeps the columns it does not know: a database may have been given columns by a newer
-- program or by hand. So a column's declared type is changed by the line
-- "-- change-column-type: <table> <column> <type>", which rebuilds the table from its own CREATE
-- statement with only that type changed (rows, other columns, keys, indexes and triggers kept),
-- never by a CREATE TABLE with a list of columns.

-- step: widen_attributes_column_type
-- run-if-rows: SELECT 1 FROM pragma_table_info('attributes') WHERE name = 'column_type' AND upper(replace(type, ' ', '')) <> 'VARCHAR(3000)'
-- change-column-type: attributes column_type VARCHAR(3000)

-- step: custom_columns_24_27
-- run-if-no-rows: SELECT * from Custom_Columns Where Custom_Col_Id in (24, 27)
INSERT INTO Custom_Columns (custom_col_id, group_id, class_member_name, display_name, description,
                            datatype_id, column_length, column_name, default_value,
                            appearance_order, default_selection)
VALUES (27, 4, 'MetaEntity.ParentOnPageOrder', 'Parent On Page Order',
        'Functions at the foreign key in combination with document id for nested datasets.',
        'Text', 10, 'PARENT_ORDER_ON_PAGE', 'N/A', 1, 1);
INSERT INTO Custom_Columns (custom_col_id, group_id, class_member_name, display_name, description,
                            datatype_id, column_length, column_name, default_value,
                            appearance_order, default_selection)
VALUES (24, 4, 'MetaEntity.OnPageOrder', 'On Page Order',
        'The order of the row on the page, relative to other rows from the same dataset.',
        'Text', 10, 'ORDER_ON_PAGE', 'N/A', 1, 1);

-- step: run_history_row_counts
-- run-if-no-rows: SELECT 1 FROM pragma_table_info('task_instance_docs') WHERE name = 'rows_written'
ALTER TABLE task_instance_docs ADD COLUMN rows_written INT NULL;
ALTER TABLE task_instance_docs ADD COLUMN rows_refused INT NULL;
ALTER TABLE task_instance_docs ADD COLUMN refusal VARCHAR(4000) NULL;

-- step: dataset_results_row_refusals
-- run-if-no-rows: SELECT 1 FROM pragma_table_info('task_inst_doc_results_by_ent') WHERE name = 'rows_refused'
ALTER TABLE task_inst_doc_results_by_ent ADD COLUMN rows_refused INT NULL;
ALTER TABLE task_inst_doc_results_by_ent ADD COLUMN refusal VARCHAR(4000) NULL;

-- step: crawl_queue
-- run-if-no-rows: SELECT 1 FROM pragma_table_info('task_instance_docs') WHERE name = 'crawl_depth'
-- The level at which a crawl found an address, and the indexes that keep a crawl's rounds from
-- reading the whole run.
ALTER TABLE task_instance_docs ADD COLUMN crawl_depth SMALLINT;
CREATE INDEX IF NOT EXISTS ix_task_instance_docs_uri
  ON task_instance_docs (task_id, job_id, job_start_time, uri);
CREATE INDEX IF NOT EXISTS ix_task_instance_docs_open
  ON task_instance_docs (job_id, task_id, job_start_time)
  WHERE (copy_completion_code <> 'Success') AND (copy_try_count < 10);
CREATE INDEX IF NOT EXISTS ix_task_instance_docs_unread
  ON task_instance_docs (job_id, task_id, job_start_time)
  WHERE temp_uri IS NOT NULL AND temp_uri <> '' AND extraction_completion_code = 0;

-- step: task_docs_run_index_covered
-- run-if-rows: SELECT 1 FROM sqlite_master WHERE type = 'index' AND name = 'ix_task_instance_docs_run'
-- The index of a task's rows in a run is the start of ix_task_instance_docs_uri, which serves
-- its look-ups; without it a queued row costs one index entry less.
DROP INDEX IF EXISTS ix_task_instance_docs_run;
