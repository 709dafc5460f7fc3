// A real HTTP or HTTPS server on loopback for tests: cpp-httplib in this process, on a free port
// of 127.0.0.1 (or another loopback address), stopped when the object goes. Add handlers through
// `Http()` before `Start`.
#pragma once

#include <httplib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "support/loopback_port.h"

namespace gw::testing {

class LoopbackHttpServer {
 public:
  // Plain HTTP.
  LoopbackHttpServer();
  // HTTPS with a certificate and key in PEM files.
  LoopbackHttpServer(const std::filesystem::path& cert, const std::filesystem::path& key);
  ~LoopbackHttpServer();
  LoopbackHttpServer(const LoopbackHttpServer&) = delete;
  LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

  httplib::Server& Http() { return *server_; }
  // Binds to `host` (a loopback address), starts serving on a thread with `threads` workers and
  // waits until it listens.
  void Start(int threads = 64, const std::string& host = "127.0.0.1");
  void Stop();
  int Port() const { return port_; }
  // "http://HOST:PORT" + path (https for a TLS server).
  std::string Url(std::string_view path = "/") const;

 private:
  std::unique_ptr<httplib::Server> server_;
  bool tls_ = false;
  std::string host_ = "127.0.0.1";
  int port_ = 0;
  std::thread thread_;
};

// A certificate authority and a server certificate for 127.0.0.1 and localhost that it signed,
// made with the openssl command in `dir`: ca.pem, server.pem, server.key.
struct TestCertificates {
  std::filesystem::path ca;
  std::filesystem::path cert;
  std::filesystem::path key;
};
TestCertificates MakeTestCertificates(const std::filesystem::path& dir);

}  // namespace gw::testing
