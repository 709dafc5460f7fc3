// What the acquisition layer gives the engine's component registry.
#pragma once

namespace gw {

// Registers `DownloadMgr` as the download manager of task runs and `Crawler` as tasks' crawler.
void RegisterAcquireComponents();

}  // namespace gw
