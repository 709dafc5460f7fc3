#include "engine/components.h"

#include <string>

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

namespace {

// What the registered factory makes; with none registered, the runtime's failure to create an
// object, which says what `registrar` would have registered.
template <typename Factory>
auto CreateFrom(const Factory& factory, const char* source, const char* what,
                const char* registrar) {
  if (!factory) {
    throw Error(errnum::kCannotCreateObject, source,
                std::string("ActiveX component can't create object: no ") + what +
                    " is registered (the host calls " + registrar + " at start).");
  }
  return factory();
}

}  // namespace

DocPluginPtr CreateDocPlugin() {
  return CreateFrom(DocPluginSlot(), "CreateDocPlugin", "document plug-in",
                    "RegisterDesignComponents");
}

DownloadMgrPtr CreateDownloadMgr() {
  return CreateFrom(DownloadMgrSlot(), "CreateDownloadMgr", "download manager",
                    "RegisterAcquireComponents");
}

}  // namespace gw
