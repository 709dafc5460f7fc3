#include "acquire/components.h"

#include "acquire/crawler.h"
#include "acquire/download_mgr.h"
#include "engine/components.h"

namespace gw {

void RegisterAcquireComponents() {
  RegisterDownloadMgrFactory([]() -> DownloadMgrPtr { return DownloadMgr::Create(); });
  RegisterCrawlerFactory([]() -> ObjectPtr { return Crawler::Create(); });
}

}  // namespace gw
