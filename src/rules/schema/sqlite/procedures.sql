-- The stored procedures of the rules database, in SQLite's dialect.
--
-- Callers reach them by "Exec usp_Name arg, arg": each block below starts with a header line
-- "-- procedure: usp_Name(Arg, ...)" naming the arguments in order, and its body is one statement
-- that refers to them as ?1, ?2, ... and uses every one of them. Other lines starting with "--"
-- are comments.

-- procedure: usp_GetAllDPages()
-- The datapages, for the open dialog.
SELECT datapage_id, display_name, description, db_name, date_created, date_modified
  FROM datapages ORDER BY display_name;

-- procedure: usp_GetJobsThatUseDpage(DatapageId)
-- One row per package that has a task on the datapage.
SELECT j.job_name FROM jobs j
 WHERE EXISTS (SELECT 1 FROM tasks t WHERE t.job_id = j.job_id AND t.datapage_id = ?1)
 ORDER BY j.job_name, j.job_id;

-- procedure: usp_CustCol_InsForEnt(EntityId, CustColId)
-- Linking a column that is linked already leaves it linked.
INSERT OR IGNORE INTO entity_custom_columns (entity_id, custom_col_id)
VALUES (?1, CAST(?2 AS INTEGER));

-- procedure: usp_CustCol_DelAllForEnt(EntityId)
DELETE FROM entity_custom_columns WHERE entity_id = ?1;

-- procedure: usp_CustCol_GetColsForEnt(EntityId)
-- In the order the columns were chosen.
SELECT custom_col_id FROM entity_custom_columns WHERE entity_id = ?1
 ORDER BY entity_custom_column_id;

-- procedure: usp_CustCol_GetDefaults()
SELECT custom_col_id FROM Custom_Columns WHERE default_selection = 1
 ORDER BY group_id, appearance_order, custom_col_id;

-- procedure: usp_CustCol_Get(CustColId)
SELECT c.custom_col_id, g.group_name, c.display_name, c.description, c.column_length,
       c.column_name, c.datatype_id, c.default_value, c.class_member_name
  FROM Custom_Columns c LEFT JOIN custom_column_groups g ON g.group_id = c.group_id
 WHERE c.custom_col_id = CAST(?1 AS INTEGER);

-- procedure: usp_GetHiLiters(DocType)
SELECT hiliter_id, doc_type, display_name, start_token, end_token, fore_color, is_bold, sort_order
  FROM hiliters WHERE doc_type = ?1 ORDER BY sort_order, hiliter_id;

-- procedure: usp_GetFileExtFromMime(MimeType)
-- The argument is a Content-Type header value: parameters after ";" do not count.
SELECT file_ext FROM file_extensions
 WHERE mime_type = trim(CASE WHEN instr(?1, ';') > 0 THEN substr(?1, 1, instr(?1, ';') - 1)
                             ELSE ?1 END)
 ORDER BY file_ext;

-- procedure: usp_GetNonDownLoadedDocs(JobId, TaskId, JobStartTime)
-- The rows still to fetch: the same bound on tries as the "don't copy" update.
SELECT * FROM task_instance_docs
 WHERE job_id = ?1 AND task_id = ?2 AND job_start_time = ?3
   AND (copy_completion_code <> 'Success') AND (copy_try_count < 10)
 ORDER BY rowid;

-- procedure: usp_GetDownLoadedDocs(JobId, TaskId, JobStartTime)
-- The rows ready to extract: those with a local copy, or pointed at their source.
SELECT doc_id, uri, temp_uri, copy_completion_time FROM task_instance_docs
 WHERE job_id = ?1 AND task_id = ?2 AND job_start_time = ?3
   AND temp_uri IS NOT NULL AND temp_uri <> ''
 ORDER BY rowid;

-- procedure: usp_GetTotalDocCount(JobId, TaskId, JobStartTime)
SELECT COUNT(*) AS TotalDocCount FROM task_instance_docs
 WHERE job_id = ?1 AND task_id = ?2 AND job_start_time = ?3;

-- procedure: usp_GetDocSource(DocSrcId)
SELECT * FROM doc_locations WHERE doc_location_id = ?1;

-- procedure: usp_GetDocSources(TaskId)
SELECT doc_location_id AS DocSrcId FROM doc_locations WHERE task_id = ?1 ORDER BY rowid;

-- procedure: usp_DelAllDocSources(TaskId)
DELETE FROM doc_locations WHERE task_id = ?1;

-- procedure: usp_GetRunningJobs(JobId)
SELECT * FROM job_instances WHERE job_id = ?1 AND job_completion_time IS NULL
 ORDER BY job_start_time;

-- procedure: usp_GetTasks(JobId)
SELECT task_id AS TaskId FROM tasks WHERE job_id = ?1 ORDER BY step, rowid;

-- procedure: usp_Meta_GetJobSuccessCode(Determinant)
SELECT job_success_code_id, display_name FROM job_success_codes
 WHERE CAST(?1 AS REAL) >= min_determinant AND CAST(?1 AS REAL) < max_determinant;

-- procedure: usp_Meta_GetTaskSuccessCode(Determinant)
SELECT task_success_code_id, display_name FROM task_success_codes
 WHERE CAST(?1 AS REAL) >= min_determinant AND CAST(?1 AS REAL) < max_determinant;

-- procedure: usp_Meta_GetDocSuccessCode(Determinant)
SELECT doc_success_code_id, display_name FROM doc_success_codes
 WHERE CAST(?1 AS REAL) >= min_determinant AND CAST(?1 AS REAL) < max_determinant;

-- procedure: usp_Meta_GetEntitySuccessCode(Determinant)
SELECT entity_success_code_id, display_name FROM entity_success_codes
 WHERE CAST(?1 AS REAL) >= min_determinant AND CAST(?1 AS REAL) < max_determinant;

-- procedure: usp_Progress_GetTaskStatusesForJobInstance(JobId, JobStartTime)
SELECT ti.task_id, t.task_name, t.step, ti.task_start_time, ti.task_completion_time,
       ti.completion_code, c.display_name AS status
  FROM task_instances ti
  LEFT JOIN tasks t ON t.task_id = ti.task_id
  LEFT JOIN task_success_codes c ON c.task_success_code_id = ti.completion_code
 WHERE ti.job_id = ?1 AND ti.job_start_time = ?2
 ORDER BY t.step, ti.task_start_time;

-- procedure: usp_Progress_GetDocStatusesForJobInstance(JobId, JobStartTime)
SELECT d.task_id, d.doc_id, d.uri, d.temp_uri, d.copy_completion_code, d.copy_try_count,
       d.copy_completion_time, d.doc_start_time, d.doc_completion_time,
       d.extraction_completion_code, c.display_name AS status, d.rows_written, d.rows_refused,
       d.refusal
  FROM task_instance_docs d
  LEFT JOIN doc_success_codes c ON c.doc_success_code_id = d.extraction_completion_code
 WHERE d.job_id = ?1 AND d.job_start_time = ?2
 ORDER BY d.rowid;

-- procedure: usp_Progress_GetRunTotals(JobId, JobStartTime)
-- A document failed when it was never copied (its copy code says why) or could not be read when
-- its turn came (it was started but has no row counts); one still queued was not reached.
SELECT COUNT(*) AS documents,
       COALESCE(SUM(CASE WHEN copy_completion_code = 'Queued' AND COALESCE(temp_uri, '') = ''
                         THEN 0
                         WHEN COALESCE(temp_uri, '') = '' THEN 1
                         WHEN doc_start_time IS NOT NULL AND rows_written IS NULL THEN 1
                         ELSE 0 END), 0) AS failed,
       COALESCE(SUM(CASE WHEN copy_completion_code = 'Queued' AND COALESCE(temp_uri, '') = ''
                         THEN 1 ELSE 0 END), 0) AS not_reached,
       COALESCE(SUM(rows_written), 0) AS rows_written,
       COALESCE(SUM(rows_refused), 0) AS rows_refused
  FROM task_instance_docs
 WHERE job_id = ?1 AND job_start_time = ?2;

-- procedure: usp_Progress_GetEntityStatusesForJobInstance(JobId, JobStartTime)
SELECT r.doc_id, r.entity_id, e.entity_name, r.ent_occur_count, r.ent_extract_count,
       r.avg_success_coeff, r.success_code, c.display_name AS status, r.error_count,
       r.avg_error_count, r.rows_refused, r.refusal
  FROM task_inst_doc_results_by_ent r
  JOIN task_instance_docs d ON d.doc_id = r.doc_id
  LEFT JOIN entities e ON e.entity_id = r.entity_id
  LEFT JOIN entity_success_codes c ON c.entity_success_code_id = r.success_code
 WHERE d.job_id = ?1 AND d.job_start_time = ?2
 ORDER BY d.rowid, e.entity_name;
