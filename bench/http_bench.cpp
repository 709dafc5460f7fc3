// The web client's asynchronous GETs against a loopback server, beside wrk against the same
// server in the same run.
//
// A child process serves a 20 KB page (cpp-httplib, a thread per connection, keep-alive). For 10
// and for 100 requests in flight, the parent keeps that many `HttpClient`s busy for a fixed time
// in the way the download agents do (pump `DoEvents`, wait with `WaitForActivity`, give every
// ready client its next `GetPage(url, true)`), and reports responses per second, its own CPU time
// per response, and the server's CPU time per response (from /proc). Then wrk (one thread, as
// many connections as requests in flight) runs against the same server for the same time, if it
// is installed. The page is served as application/octet-stream so that the server compresses it
// for neither client (curl asks for gzip and br; wrk asks for nothing).
//
//   http_bench [seconds per run, default 5]
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/event_loop.h"
#include "web/http_client.h"
#include "web/web_settings.h"

namespace {

using Clock = std::chrono::steady_clock;

double CpuSeconds(const rusage& r) {
  return static_cast<double>(r.ru_utime.tv_sec + r.ru_stime.tv_sec) +
         static_cast<double>(r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
}
double SelfCpu() {
  rusage r{};
  getrusage(RUSAGE_SELF, &r);
  return CpuSeconds(r);
}
double ChildrenCpu() {
  rusage r{};
  getrusage(RUSAGE_CHILDREN, &r);
  return CpuSeconds(r);
}
// CPU seconds a running process has used (utime + stime in /proc/PID/stat).
double ProcessCpu(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const std::size_t close = text.rfind(')');
  std::istringstream fields(text.substr(close + 2));
  std::string f;
  unsigned long long utime = 0, stime = 0;
  for (int k = 3; k <= 15 && fields >> f; ++k) {
    if (k == 14) utime = std::stoull(f);
    if (k == 15) stime = std::stoull(f);
  }
  return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

pid_t StartServer(int& port) {
  int fds[2];
  if (pipe(fds) != 0) std::abort();
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    httplib::Server server;
    const std::string page = [] {
      std::string p = "<html><head><title>bench</title></head><body>\n";
      while (p.size() < 20 * 1024 - 20) p += "<p>row of the benchmark page, some text</p>\n";
      p.resize(20 * 1024 - 14);
      return p + "</body></html>";
    }();
    server.new_task_queue = [] { return new httplib::ThreadPool(128); };
    server.set_keep_alive_max_count(1000000);
    server.set_keep_alive_timeout(5);
    server.set_tcp_nodelay(true);
    server.Get("/page", [&page](const httplib::Request&, httplib::Response& res) {
      res.set_content(page, "application/octet-stream");
    });
    const int p = server.bind_to_any_port("127.0.0.1");
    if (write(fds[1], &p, sizeof p) != sizeof p) _exit(1);
    close(fds[1]);
    server.listen_after_bind();
    _exit(0);
  }
  close(fds[1]);
  if (read(fds[0], &port, sizeof port) != sizeof port) std::abort();
  close(fds[0]);
  return pid;
}

struct Result {
  long responses = 0;
  long failures = 0;
  double seconds = 0;
  double own_cpu = 0;
  double server_cpu = 0;
};

Result RunClient(const std::string& url, int in_flight, double seconds, pid_t server) {
  using namespace gw::web;
  std::vector<std::shared_ptr<HttpClient>> clients;
  Result r;
  std::vector<gw::ScopedConnection> connections;
  for (int k = 0; k < in_flight; ++k) {
    auto c = HttpClient::Create();
    connections.emplace_back(c->AsynchRequestComplete.Connect([&r, c = c.get()](
                                                                  const std::string& msg) {
      if (msg.empty() && c->HttpResponse()->ResponseBody().size() == 20 * 1024) {
        ++r.responses;
      } else {
        if (r.failures++ == 0) {
          std::fprintf(stderr, "first failure: %s\n", msg.empty() ? "a short body" : msg.c_str());
        }
      }
    }));
    clients.push_back(c);
  }
  gw::EventLoop& loop = gw::EventLoop::Current();
  const double cpu0 = SelfCpu();
  const double server0 = ProcessCpu(server);
  const auto start = Clock::now();
  const auto end = start + std::chrono::duration<double>(seconds);
  for (auto& c : clients) c->GetPage(url, true);
  while (Clock::now() < end) {
    loop.DoEvents();
    for (auto& c : clients) {
      if (c->IsReady()) c->GetPage(url, true);
    }
    loop.WaitForActivity(std::chrono::milliseconds(100));
  }
  // Let the requests in flight finish, uncounted in the rate's time but in its CPU.
  r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const long counted = r.responses;
  loop.RunUntil(
      [&] {
        for (auto& c : clients) {
          if (!c->IsReady()) return false;
        }
        return true;
      },
      std::chrono::seconds(30));
  r.own_cpu = SelfCpu() - cpu0;
  r.server_cpu = ProcessCpu(server) - server0;
  const long total = r.responses;
  r.responses = counted;
  // CPU per response over every response the CPU time paid for.
  r.own_cpu *= static_cast<double>(counted) / static_cast<double>(total);
  r.server_cpu *= static_cast<double>(counted) / static_cast<double>(total);
  return r;
}

bool HaveWrk() { return std::system("command -v wrk >/dev/null 2>&1") == 0; }

Result RunWrk(const std::string& url, int connections, double seconds, pid_t server) {
  Result r;
  const std::string out_file = "/tmp/gw-http-bench-wrk-" + std::to_string(getpid()) + ".txt";
  const double children0 = ChildrenCpu();
  const double server0 = ProcessCpu(server);
  const std::string cmd = "wrk -t1 -c" + std::to_string(connections) + " -d" +
                          std::to_string(static_cast<int>(seconds)) + "s " + url + " > " +
                          out_file + " 2>&1";
  if (std::system(cmd.c_str()) != 0) return r;
  r.own_cpu = ChildrenCpu() - children0;
  r.server_cpu = ProcessCpu(server) - server0;
  std::ifstream in(out_file);
  std::string line;
  while (std::getline(in, line)) {
    long requests = 0;
    double secs = 0;
    if (std::sscanf(line.c_str(), " %ld requests in %lfs", &requests, &secs) == 2) {
      r.responses = requests;
      r.seconds = secs;
    }
  }
  std::remove(out_file.c_str());
  return r;
}

void Print(const char* who, int in_flight, const Result& r) {
  const double rate = r.seconds > 0 ? static_cast<double>(r.responses) / r.seconds : 0;
  const double per = r.responses > 0 ? 1e6 / static_cast<double>(r.responses) : 0;
  std::printf(
      "%-12s %4d in flight  %9.0f responses/s  %7.1f us CPU/response  server %7.1f us "
      "CPU/response%s\n",
      who, in_flight, rate, r.own_cpu * per, r.server_cpu * per, r.failures ? "  (failures!)" : "");
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 5.0;
  signal(SIGPIPE, SIG_IGN);
  int port = 0;
  const pid_t server = StartServer(port);
  const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/page";
  usleep(200000);
  gw::web::SetWebSettings(gw::web::WebSettings{});
  std::printf("20 KB page from a loopback server, %.0f s per run, %ld cores\n", seconds,
              sysconf(_SC_NPROCESSORS_ONLN));
  const bool wrk = HaveWrk();
  for (int in_flight : {10, 100}) {
    const Result client = RunClient(url, in_flight, seconds, server);
    Print("HttpClient", in_flight, client);
    if (wrk) {
      const Result w = RunWrk(url, in_flight, seconds, server);
      Print("wrk -t1", in_flight, w);
      if (in_flight == 10 && w.responses > 0 && w.seconds > 0 && client.seconds > 0) {
        const double ratio = (static_cast<double>(client.responses) / client.seconds) /
                             (static_cast<double>(w.responses) / w.seconds);
        std::printf("  HttpClient reaches %.0f%% of wrk's rate with 10 in flight (goal: 50%%)\n",
                    ratio * 100);
      }
    }
    std::printf("  client CPU per response is %.2f times the server's (goal: below 1)\n",
                client.server_cpu > 0 ? client.own_cpu / client.server_cpu : 0.0);
  }
  if (!wrk) std::printf("wrk is not installed: bench/run_http_bench.sh installs it\n");
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  return 0;
}
