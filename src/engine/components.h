// The component registry: how the engine makes objects whose classes live in higher layers.
//
// A task needs a document plug-in (design layer) and a download manager (acquisition layer), and
// both layers are built on the engine. The engine therefore knows them only by their interfaces
// (engine/doc_plugin.h, engine/download_manager.h) and asks this registry for new ones; the host
// fills the registry at start by calling `RegisterDesignComponents()` (design/components.h) and
// `RegisterAcquireComponents()` (acquire/components.h). A later registration replaces an earlier
// one, so a test may put its own factory in.
#pragma once

#include <functional>

#include "engine/doc_plugin.h"
#include "engine/download_manager.h"
#include "platform/error.h"

namespace gw {

using DocPluginFactory = std::function<DocPluginPtr()>;
using DownloadMgrFactory = std::function<DownloadMgrPtr()>;
// A task's crawler (acquisition layer); it implements `ISerializable` for the task's text form.
using CrawlerFactory = std::function<ObjectPtr()>;

// An empty function removes the factory.
void RegisterDocPluginFactory(DocPluginFactory factory);
void RegisterDownloadMgrFactory(DownloadMgrFactory factory);
void RegisterCrawlerFactory(CrawlerFactory factory);

// A new document plug-in (the HTML one); fails with 429 when no factory is registered.
DocPluginPtr CreateDocPlugin();
// A new download manager; fails with 429 when no factory is registered.
DownloadMgrPtr CreateDownloadMgr();
// A new crawler; null when no factory is registered (a task then keeps its crawler's text as
// read).
ObjectPtr CreateCrawler();

}  // namespace gw
