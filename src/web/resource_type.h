// What kind of resource an address names, as the download managers and filters classify it.
#pragma once

namespace gw::web {

enum class ResourceType { http = 0, FileSystem = 1, FTP = 2, email = 3, Unknown = 4, Invalid = 5 };

}  // namespace gw::web
