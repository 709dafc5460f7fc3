// rules_writer CONNECTION-STRING JOB-ID COUNT
//
// Writes COUNT package runs of JOB-ID into the rules store, each with a task run, one document and
// one result by dataset, the way a running package does. Exits 0 when every write succeeded and
// prints the failure and exits 1 otherwise. The concurrency test runs two of these at once.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/error.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: rules_writer CONNECTION-STRING JOB-ID COUNT\n");
    return 2;
  }
  const std::string job = argv[2];
  const int count = std::atoi(argv[3]);
  gw::SetRulesConnectionOverride(argv[1]);
  try {
    gw::DJob jobs;
    gw::DTask tasks;
    gw::D_Doc docs;
    gw::D_Metabase results;
    jobs.Save(job, gw::DateTime::Now(), gw::DateTime::Now(), "Writer " + job);
    tasks.Save(job + "-task", job, "Task", gw::NoAction(), 1);
    const gw::DateTime base = gw::DateTime::FromParts(2026, 1, 1);
    for (int k = 0; k < count; ++k) {
      const gw::DateTime start = base.AddSeconds(k);
      const std::string doc = job + "-doc-" + std::to_string(k);
      jobs.SaveInstance(job, start);
      tasks.SaveInstance(job + "-task", job, start, start);
      docs.SaveDocument(doc, job + "-task", job, start, "http://x/" + doc, "", "Queued");
      docs.SaveDocument(doc, "", "", gw::DateTime(), "", "/tmp/" + doc, "Success");
      results.SaveMetaEnt(doc, "e1", 2, 2, 1.0f, 5, 0, 0.0f);
      tasks.SaveInstance(job + "-task", job, start, start, gw::Variant(start.AddSeconds(1)),
                         gw::Variant(5));
      jobs.SaveInstance(job, start, gw::Variant(start.AddSeconds(1)), gw::Variant(5));
    }
  } catch (const gw::Error& e) {
    std::fprintf(stderr, "%s %s: %s\n", e.NumberText().c_str(), e.Source().c_str(),
                 e.Description().c_str());
    return 1;
  }
  return 0;
}
