// A main for the fuzz targets when libFuzzer is not there (the usual build): runs the target once
// on an empty input and once on each file named (a folder: each file in it, by name), so the
// targets build with every compiler and their seed inputs run as tests. A target that finds a
// fault stops the program (a trap), as it does under the fuzzer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/document_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void RunOn(const std::string& bytes) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    const fs::path arg(argv[i]);
    if (fs::is_directory(arg)) {
      std::vector<fs::path> files;
      for (const auto& entry : fs::directory_iterator(arg)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
      std::sort(files.begin(), files.end());
      inputs.insert(inputs.end(), files.begin(), files.end());
    } else if (fs::is_regular_file(arg)) {
      inputs.push_back(arg);
    } else {
      std::fprintf(stderr, "%s: no such file or folder\n", argv[i]);
      return 2;
    }
  }
  RunOn({});
  for (const fs::path& input : inputs) RunOn(gw::ReadFileBytes(input.string(), "replay"));
  std::printf("%zu inputs and the empty one: no fault\n", inputs.size());
  return 0;
}
