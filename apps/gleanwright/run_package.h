// Running a package with the usual display, progress and Ctrl-C handling, for the commands that
// run one (run, crawl).
#pragma once

#include <memory>
#include <string>

namespace gw {
class Job;
}

namespace gw::app {

// Runs `job` (loaded) and prints its success code; with `resume`, goes on with its newest
// unfinished run, or starts a new one (saying so) when it has none. Returns the exit status.
int RunJob(const std::shared_ptr<Job>& job, const std::string& uri, const std::string& source_text,
           bool resume);

}  // namespace gw::app
