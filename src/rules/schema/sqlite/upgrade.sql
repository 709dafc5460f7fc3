-- The upgrade of the rules database, run at every start and by "gleanwright init".
--
-- Each step starts with a header "-- step: name" and a guard line, either
-- "-- run-if-rows: <query>" (the step runs when the query yields a row) or
-- "-- run-if-no-rows: <query>" (it runs when the query yields none). Its statements run as one
-- transaction. A step that has been applied makes its guard fail, so running the upgrade again
-- changes nothing.

-- step: widen_attributes_column_type
-- run-if-rows: SELECT 1 FROM pragma_table_info('attributes') WHERE name = 'column_type' AND upper(replace(type, ' ', '')) <> 'VARCHAR(3000)'
-- SQLite keeps declared widths in the table's definition only, so the column is widened by
-- rebuilding the table. The delete trigger goes first: dropping the old table must not delete
-- the design-time rows of its fields.
DROP TRIGGER IF EXISTS trg_attributes_delete;
CREATE TABLE attributes_widened (
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
INSERT INTO attributes_widened
  SELECT attribute_id, entity_id, column_name, start_tag, end_tag, step, is_pk, column_type,
         column_size, is_optional
    FROM attributes;
DROP TABLE attributes;
PRAGMA legacy_alter_table = ON;
ALTER TABLE attributes_widened RENAME TO attributes;
PRAGMA legacy_alter_table = OFF;
CREATE INDEX IF NOT EXISTS ix_attributes_entity ON attributes (entity_id);
CREATE TRIGGER IF NOT EXISTS trg_attributes_delete AFTER DELETE ON attributes
BEGIN
  DELETE FROM ui_attributes WHERE attribute_id = old.attribute_id;
END;

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
