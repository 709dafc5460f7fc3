-- Reference rows of the rules database. INSERT OR IGNORE: loading them again changes nothing,
-- and a row that a user has changed keeps the change.

-- ---- success codes ---------------------------------------------------------------------------
-- The determinant is the percentage of what was expected and was found. The bands of each table
-- cover every number exactly once; 100 and above is a full success.

INSERT OR IGNORE INTO job_success_codes VALUES (1, 'Failure', -1e300, 1);
INSERT OR IGNORE INTO job_success_codes VALUES (2, 'Poor', 1, 50);
INSERT OR IGNORE INTO job_success_codes VALUES (3, 'Partial Success', 50, 80);
INSERT OR IGNORE INTO job_success_codes VALUES (4, 'Mostly Successful', 80, 100);
INSERT OR IGNORE INTO job_success_codes VALUES (5, 'Success', 100, 1e300);

INSERT OR IGNORE INTO task_success_codes VALUES (1, 'Failure', -1e300, 1);
INSERT OR IGNORE INTO task_success_codes VALUES (2, 'Poor', 1, 50);
INSERT OR IGNORE INTO task_success_codes VALUES (3, 'Partial Success', 50, 80);
INSERT OR IGNORE INTO task_success_codes VALUES (4, 'Mostly Successful', 80, 100);
INSERT OR IGNORE INTO task_success_codes VALUES (5, 'Success', 100, 1e300);

INSERT OR IGNORE INTO doc_success_codes VALUES (1, 'Failure', -1e300, 1);
INSERT OR IGNORE INTO doc_success_codes VALUES (2, 'Poor', 1, 50);
INSERT OR IGNORE INTO doc_success_codes VALUES (3, 'Partial Success', 50, 80);
INSERT OR IGNORE INTO doc_success_codes VALUES (4, 'Mostly Successful', 80, 100);
INSERT OR IGNORE INTO doc_success_codes VALUES (5, 'Success', 100, 1e300);

INSERT OR IGNORE INTO entity_success_codes VALUES (1, 'Failure', -1e300, 1);
INSERT OR IGNORE INTO entity_success_codes VALUES (2, 'Poor', 1, 50);
INSERT OR IGNORE INTO entity_success_codes VALUES (3, 'Partial Success', 50, 80);
INSERT OR IGNORE INTO entity_success_codes VALUES (4, 'Mostly Successful', 80, 100);
INSERT OR IGNORE INTO entity_success_codes VALUES (5, 'Success', 100, 1e300);

-- ---- custom columns --------------------------------------------------------------------------

INSERT OR IGNORE INTO custom_column_groups VALUES (1, 'Package');
INSERT OR IGNORE INTO custom_column_groups VALUES (2, 'Task');
INSERT OR IGNORE INTO custom_column_groups VALUES (3, 'Document');
INSERT OR IGNORE INTO custom_column_groups VALUES (4, 'Dataset');

-- (custom_col_id, group_id, class_member_name, display_name, description, datatype_id,
--  column_length, column_name, default_value, appearance_order, default_selection)
INSERT OR IGNORE INTO Custom_Columns VALUES (1, 1, 'MetaJob.JobId', 'Package Id',
  'The id of the package that extracted the row.', 'Text', 50, 'PACKAGE_ID', 'N/A', 1, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (2, 1, 'MetaJob.JobName', 'Package Name',
  'The name of the package that extracted the row.', 'Text', 255, 'PACKAGE_NAME', 'N/A', 2, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (3, 1, 'MetaJob.JobStartTime', 'Package Start Time',
  'When the run of the package that extracted the row began.', 'Text', 30, 'PACKAGE_START_TIME',
  'N/A', 3, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (6, 2, 'MetaTask.TaskId', 'Task Id',
  'The id of the task that extracted the row.', 'Text', 50, 'TASK_ID', 'N/A', 1, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (10, 3, 'MetaDoc.DocId', 'Document Id',
  'The id of the document the row was extracted from.', 'Text', 50, 'DOC_ID', 'N/A', 1, 1);
INSERT OR IGNORE INTO Custom_Columns VALUES (11, 3, 'MetaDoc.SourceUri', 'Source URI',
  'The address the document was read from.', 'Text', 1000, 'SOURCE_URI', 'N/A', 2, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (12, 3, 'MetaDoc.LocalPath', 'Local Path',
  'Where the downloaded copy of the document was stored.', 'Text', 1000, 'LOCAL_PATH', 'N/A', 3, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (13, 3, 'MetaDoc.DataPageName', 'Datapage Name',
  'The name of the datapage that extracted the row.', 'Text', 255, 'DATAPAGE_NAME', 'N/A', 4, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (14, 3, 'MetaDoc.DataPageId', 'Datapage Id',
  'The id of the datapage that extracted the row.', 'Text', 50, 'DATAPAGE_ID', 'N/A', 5, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (15, 3, 'MetaDoc.DownloadComplete', 'Download Complete',
  'When the download of the document ended.', 'Text', 30, 'DOWNLOAD_COMPLETE', 'N/A', 6, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (16, 3, 'MetaDoc.ExtractionStart', 'Extraction Start',
  'When the extraction of the document began.', 'Text', 30, 'EXTRACTION_START', 'N/A', 7, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (20, 4, 'MetaEntity.EntityId', 'Dataset Id',
  'The id of the dataset that extracted the row.', 'Text', 50, 'DATASET_ID', 'N/A', 2, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (21, 4, 'MetaEntity.OccurCount', 'Occurrence Count',
  'How many rows of the dataset the document held.', 'Text', 10, 'OCCUR_COUNT', 'N/A', 3, 0);
INSERT OR IGNORE INTO Custom_Columns VALUES (24, 4, 'MetaEntity.OnPageOrder', 'On Page Order',
  'The order of the row on the page, relative to other rows from the same dataset.', 'Text', 10,
  'ORDER_ON_PAGE', 'N/A', 1, 1);
INSERT OR IGNORE INTO Custom_Columns VALUES (27, 4, 'MetaEntity.ParentOnPageOrder',
  'Parent On Page Order',
  'Functions at the foreign key in combination with document id for nested datasets.', 'Text', 10,
  'PARENT_ORDER_ON_PAGE', 'N/A', 1, 1);

-- ---- target database kinds -------------------------------------------------------------------
-- (provider_id, page_length, max_varchar_size, max_name_length)

INSERT OR IGNORE INTO providers VALUES ('Default', 8060, 8000, 128);
INSERT OR IGNORE INTO providers VALUES ('SQLite', 8060, 8000, 128);
INSERT OR IGNORE INTO providers VALUES ('Microsoft.Jet.OLEDB.4.0', 4000, 255, 64);
INSERT OR IGNORE INTO providers VALUES ('Microsoft.Jet.OLEDB.3.51', 2000, 255, 64);
INSERT OR IGNORE INTO providers VALUES ('SQLOLEDB', 8060, 8000, 128);
INSERT OR IGNORE INTO providers VALUES ('SQLOLEDB.1', 8060, 8000, 128);
INSERT OR IGNORE INTO providers VALUES ('MySQLProv', 65535, 16383, 64);
INSERT OR IGNORE INTO providers VALUES ('MSDASQL', 65535, 16383, 64);
INSERT OR IGNORE INTO providers VALUES ('MSDASQL.1', 65535, 16383, 64);

-- ---- file extensions -------------------------------------------------------------------------
-- Pages made by server scripts are saved as HTML; documents keep their own extension.

INSERT OR IGNORE INTO file_ext_map VALUES ('asp', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('aspx', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('php', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('php3', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('php4', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('jsp', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('jhtml', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('cfm', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('cgi', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('pl', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('dll', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('exe', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('shtml', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('stm', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('htm', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('html', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('xhtml', 'htm');
INSERT OR IGNORE INTO file_ext_map VALUES ('txt', 'txt');
INSERT OR IGNORE INTO file_ext_map VALUES ('xml', 'xml');
INSERT OR IGNORE INTO file_ext_map VALUES ('csv', 'csv');
INSERT OR IGNORE INTO file_ext_map VALUES ('pdf', 'pdf');
INSERT OR IGNORE INTO file_ext_map VALUES ('doc', 'doc');
INSERT OR IGNORE INTO file_ext_map VALUES ('rtf', 'rtf');
INSERT OR IGNORE INTO file_ext_map VALUES ('xls', 'xls');
INSERT OR IGNORE INTO file_ext_map VALUES ('json', 'json');
INSERT OR IGNORE INTO file_ext_map VALUES ('gif', 'gif');
INSERT OR IGNORE INTO file_ext_map VALUES ('jpg', 'jpg');
INSERT OR IGNORE INTO file_ext_map VALUES ('jpeg', 'jpg');
INSERT OR IGNORE INTO file_ext_map VALUES ('png', 'png');
INSERT OR IGNORE INTO file_ext_map VALUES ('zip', 'zip');

-- (file_ext, mime_type, http_default, file_system_default, ftp_default, unknown_default,
--  invalid_default): one default per resource type.
INSERT OR IGNORE INTO file_extensions VALUES ('htm', 'text/html', 1, 0, 0, 1, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('txt', 'text/plain', 0, 1, 1, 0, 1);
INSERT OR IGNORE INTO file_extensions VALUES ('xml', 'text/xml', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('xhtml', 'application/xhtml+xml', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('csv', 'text/csv', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('pdf', 'application/pdf', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('doc', 'application/msword', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('rtf', 'application/rtf', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('xls', 'application/vnd.ms-excel', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('json', 'application/json', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('gif', 'image/gif', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('jpg', 'image/jpeg', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('png', 'image/png', 0, 0, 0, 0, 0);
INSERT OR IGNORE INTO file_extensions VALUES ('zip', 'application/zip', 0, 0, 0, 0, 0);

-- ---- highlighters of the design tool ---------------------------------------------------------
-- (hiliter_id, doc_type, display_name, start_token, end_token, fore_color, is_bold, sort_order)

INSERT OR IGNORE INTO hiliters VALUES (1, 'HTML', 'Comments', '<!--', '-->', '#008000', 0, 1);
INSERT OR IGNORE INTO hiliters VALUES (2, 'HTML', 'Scripts', '<script', '</script>', '#800000', 0, 2);
INSERT OR IGNORE INTO hiliters VALUES (3, 'HTML', 'Styles', '<style', '</style>', '#800080', 0, 3);
INSERT OR IGNORE INTO hiliters VALUES (4, 'HTML', 'Tags', '<', '>', '#0000FF', 0, 4);
INSERT OR IGNORE INTO hiliters VALUES (5, 'HTML', 'Entities', '&', ';', '#FF0000', 0, 5);
INSERT OR IGNORE INTO hiliters VALUES (6, 'XML', 'Comments', '<!--', '-->', '#008000', 0, 1);
INSERT OR IGNORE INTO hiliters VALUES (7, 'XML', 'Character data', '<![CDATA[', ']]>', '#808080', 0, 2);
INSERT OR IGNORE INTO hiliters VALUES (8, 'XML', 'Tags', '<', '>', '#0000FF', 0, 3);
INSERT OR IGNORE INTO hiliters VALUES (9, 'XML', 'Entities', '&', ';', '#FF0000', 0, 4);
