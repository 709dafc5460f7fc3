// Refusing a crafted template file: an element with very many attributes. The time per document
// should grow with its length, not with the square of its attributes (compare the arguments).
#include <benchmark/benchmark.h>

#include <string>

#include "engine/exchange_objects.h"
#include "infra/object_xml_reader.h"

namespace {

std::string CrowdedRoot(std::int64_t attributes) {
  std::string xml = "<GleanwrightExport Object=\"True\"";
  for (std::int64_t k = 0; k < attributes; ++k) {
    xml += " a" + std::to_string(k) + "=\"" + std::to_string(k) + "\"";
  }
  return xml + "/>";
}

void BM_RefuseCrowdedRoot(benchmark::State& state) {
  const std::string xml = CrowdedRoot(state.range(0));
  for (auto _ : state) {
    gw::exchange::ExchangeFile file;
    try {
      gw::ObjectXmlReader().Read(file, xml, "crowded.xml");
    } catch (const gw::Error& e) {
      benchmark::DoNotOptimize(e.Number());
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(xml.size()));
}
BENCHMARK(BM_RefuseCrowdedRoot)
    ->Arg(10'000)
    ->Arg(50'000)
    ->Arg(200'000)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
