#include "engine/components.h"

namespace gw {

namespace {
DocPluginFactory& DocPluginSlot() {
  static DocPluginFactory factory;
  return factory;
}
DownloadMgrFactory& DownloadMgrSlot() {
  static DownloadMgrFactory factory;
  return factory;
}
CrawlerFactory& CrawlerSlot() {
  static CrawlerFactory factory;
  return factory;
}
}  // namespace

void RegisterCrawlerFactory(CrawlerFactory factory) { CrawlerSlot() = std::move(factory); }

ObjectPtr CreateCrawler() { return CrawlerSlot() ? CrawlerSlot()() : nullptr; }

void RegisterDocPluginFactory(DocPluginFactory factory) { DocPluginSlot() = std::move(factory); }
void RegisterDownloadMgrFactory(DownloadMgrFactory factory) {
  DownloadMgrSlot() = std::move(factory);
}

DocPluginPtr CreateDocPlugin() {
  if (!DocPluginSlot()) {
    throw Error(errnum::kCannotCreateObject, "CreateDocPlugin",
                "ActiveX component can't create object: no document plug-in is registered "
                "(the host calls RegisterDesignComponents at start).");
  }
  return DocPluginSlot()();
}

DownloadMgrPtr CreateDownloadMgr() {
  if (!DownloadMgrSlot()) {
    throw Error(errnum::kCannotCreateObject, "CreateDownloadMgr",
                "ActiveX component can't create object: no download manager is registered "
                "(the host calls RegisterAcquireComponents at start).");
  }
  return DownloadMgrSlot()();
}

}  // namespace gw
