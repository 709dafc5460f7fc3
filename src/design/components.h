// What the design layer gives the engine's component registry.
#pragma once

namespace gw {

// Registers the HTML document plug-in as the plug-in that package runs read documents with.
void RegisterDesignComponents();

}  // namespace gw
