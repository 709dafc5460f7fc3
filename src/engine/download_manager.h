// IDownloadMgr: what a task needs of the download manager that fetches its documents.
//
// The acquisition layer, above the engine, implements it and registers a factory in the component
// registry (engine/components.h); `Task::Execute` makes one per run and listens to its events.
#pragma once

#include <memory>
#include <string>

#include "engine/file_saver.h"
#include "platform/date_time.h"
#include "platform/signal.h"
#include "platform/variant.h"
#include "web/http_client.h"

namespace gw {

class Task;

// The web session a package hands from task to task (an HTTP client with its cookies); null means
// none yet.
using HttpClientPtr = std::shared_ptr<web::HttpClient>;

class IDownloadMgr {
 public:
  virtual ~IDownloadMgr() = default;

  // Fetches the run's documents that are still to fetch (not "Success", tried fewer than 10
  // times), pass after pass until none is left: each row gets its outcome in
  // `copy_completion_code`, one more try in `copy_try_count`, and on success `temp_uri` and
  // `copy_completion_time`. A method other than GET or POST is taken as GET. Returns the client
  // the last pass ended with.
  virtual HttpClientPtr DownloadDocs(const std::string& JobId, const std::string& TaskId,
                                     const DateTime& JobStartTime,
                                     const FileSaverPtr& SaveAsTemplate,
                                     const HttpClientPtr& TemplateHttpClient,
                                     const std::string& Method, bool SaveErrorPages) = 0;
  // The documents are local already: every row of the run still to fetch gets its source address
  // as `temp_uri`.
  virtual void DontDownloadDocs(const std::string& JobId, const std::string& TaskId,
                                const DateTime& JobStartTime) = 0;
  // The crawl entry: puts the task's crawler in charge of the run's queued addresses. Returns the
  // client the crawl ended with.
  virtual HttpClientPtr Crawl(const std::shared_ptr<Task>& task, const FileSaverPtr& SaveAsTemplate,
                              const HttpClientPtr& TemplateHttpClient) = 0;

  // (ChangeAmount, ProgressMax).
  Signal<long, long> OnProgressChange;
  // (Status, flgCancel): a handler sets flgCancel to stop the downloads.
  Signal<const std::string&, bool&> OnStatusChange;
};

using DownloadMgrPtr = std::shared_ptr<IDownloadMgr>;

}  // namespace gw
