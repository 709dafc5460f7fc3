// Inside the package engine: texts that several of its classes raise.
#pragma once

#include <string_view>

namespace gw::engine_internal {

// Why a package's definition cannot change while a run of it is under way (Job.Save,
// Job.SaveAll, Task.Save), and why it cannot be deleted (Job.Delete).
inline constexpr std::string_view kNoEditingText =
    "One or more instances of this package is currently executing.  No editing is allowed during "
    "package execution.  Save cancelled.  This may be because a package terminated abnormally.  "
    "You can force all running packages to complete with the command "
    "'gleanwright close-instances'.";
inline constexpr std::string_view kNoDeletionText =
    "One or more instances of this package is currently executing.  Deletion is not allowed "
    "during package execution.  Delete cancelled.  This may be because a package terminated "
    "abnormally.  You can force all running packages to complete with the command "
    "'gleanwright close-instances'.";

}  // namespace gw::engine_internal
