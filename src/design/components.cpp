#include "design/components.h"

#include "design/html_plugin.h"
#include "engine/components.h"

namespace gw {

void RegisterDesignComponents() {
  RegisterDocPluginFactory([]() -> DocPluginPtr { return CHTMLPlugin::Create(); });
}

}  // namespace gw
