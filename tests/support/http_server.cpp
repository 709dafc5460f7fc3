#include "support/http_server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace gw::testing {

LoopbackHttpServer::LoopbackHttpServer() : server_(std::make_unique<httplib::Server>()) {}

LoopbackHttpServer::LoopbackHttpServer(const std::filesystem::path& cert,
                                       const std::filesystem::path& key)
    : server_(std::make_unique<httplib::SSLServer>(cert.c_str(), key.c_str())), tls_(true) {
  if (!server_->is_valid()) throw std::runtime_error("the TLS test server could not start");
}

LoopbackHttpServer::~LoopbackHttpServer() { Stop(); }

void LoopbackHttpServer::Start(int threads, const std::string& host) {
  if (host.rfind("127.", 0) != 0) throw std::runtime_error("test servers stay on loopback");
  host_ = host;
  server_->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  int listening = -1;
  server_->set_socket_options([&listening](socket_t sock) {
    httplib::default_socket_options(sock);
    listening = sock;
  });
  port_ = server_->bind_to_any_port(host_);
  if (port_ <= 0) throw std::runtime_error("the test server could not bind to " + host_);
  // The library listens with a backlog of 5: tests that open dozens of connections at once would
  // see connections dropped and tried again a second later.
  if (listening >= 0) ::listen(listening, 128);
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  for (int k = 0; k < 500 && !server_->is_running(); ++k) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

void LoopbackHttpServer::Stop() {
  if (thread_.joinable()) {
    server_->stop();
    thread_.join();
  }
}

std::string LoopbackHttpServer::Url(std::string_view path) const {
  return std::string(tls_ ? "https" : "http") + "://" + host_ + ":" + std::to_string(port_) +
         std::string(path);
}

TestCertificates MakeTestCertificates(const std::filesystem::path& dir) {
  TestCertificates c{dir / "ca.pem", dir / "server.pem", dir / "server.key"};
  const std::string d = dir.string();
  const std::string ext = (dir / "ext.cnf").string();
  const std::string script =
      "cd '" + d +
      "' && "
      "printf 'subjectAltName=IP:127.0.0.1,DNS:localhost\\nbasicConstraints=CA:FALSE\\n' > ext.cnf"
      " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes"
      " -keyout ca.key -out ca.pem -days 2 -subj '/CN=Gleanwright Test CA' 2>/dev/null"
      " && openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes"
      " -keyout server.key -out server.csr -subj '/CN=localhost' 2>/dev/null"
      " && openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial"
      " -out server.pem -days 2 -extfile ext.cnf 2>/dev/null";
  if (std::system(script.c_str()) != 0) {
    throw std::runtime_error("openssl could not make the test certificates");
  }
  return c;
}

}  // namespace gw::testing
