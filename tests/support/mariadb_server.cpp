#include "support/mariadb_server.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/db/connection.h"
#include "support/loopback_port.h"

namespace gw::testing {

namespace {

int Spawn(const std::vector<std::string>& args, const std::string& log) {
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    FILE* out = std::freopen(log.c_str(), "a", stdout);
    FILE* err = std::freopen(log.c_str(), "a", stderr);
    (void)out;
    (void)err;
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    std::_Exit(127);
  }
  return pid;
}

std::string Find(const char* name, std::initializer_list<const char*> dirs) {
  for (const char* d : dirs) {
    const std::string p = std::string(d) + "/" + name;
    if (::access(p.c_str(), X_OK) == 0) return p;
  }
  return name;
}

}  // namespace

MariaDbServer& MariaDbServer::Shared() {
  static MariaDbServer server;
  return server;
}

MariaDbServer::MariaDbServer() {
  char pattern[] = "/tmp/gwmariadb-XXXXXX";
  if (!::mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
  dir_ = pattern;
  socket_ = dir_ + "/sock";
  port_ = UnusedLoopbackPort();
  const std::string log = dir_ + "/server.log";
  const bool root = ::geteuid() == 0;

  std::vector<std::string> install = {Find("mariadb-install-db", {"/usr/bin", "/usr/sbin"}),
                                      "--no-defaults", "--datadir=" + dir_ + "/data",
                                      "--auth-root-authentication-method=normal", "--skip-test-db",
                                      // Servers of parallel test programs must not share /tmp.
                                      "--tmpdir=" + dir_};
  if (root) install.push_back("--user=root");
  const int ipid = Spawn(install, log);
  int status = 0;
  ::waitpid(ipid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("mariadb-install-db failed; see " + log);  // the folder is kept
  }

  std::vector<std::string> server = {Find("mariadbd", {"/usr/sbin", "/usr/bin"}),
                                     "--no-defaults",
                                     "--datadir=" + dir_ + "/data",
                                     "--socket=" + socket_,
                                     "--pid-file=" + dir_ + "/pid",
                                     "--port=" + std::to_string(port_),
                                     "--bind-address=127.0.0.1",
                                     "--skip-name-resolve",
                                     "--innodb-buffer-pool-size=32M",
                                     "--innodb-log-file-size=8M",
                                     "--skip-log-bin",
                                     "--tmpdir=" + dir_,
                                     "--log-error=" + dir_ + "/error.log"};
  if (root) server.push_back("--user=root");
  pid_ = Spawn(server, log);

  // Ready when a client can connect.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (true) {
    try {
      auto cn = db::Connection::Create();
      cn->Open(ConnectionString());
      return;
    } catch (const std::exception&) {
      int st = 0;
      if (::waitpid(pid_, &st, WNOHANG) == pid_) {
        pid_ = -1;
        throw std::runtime_error("mariadbd exited at start; see " + dir_ + "/error.log");
      }
      if (std::chrono::steady_clock::now() > deadline) {
        Stop();
        throw std::runtime_error("mariadbd did not become ready; see " + dir_ + "/error.log");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
}

MariaDbServer::~MariaDbServer() {
  Stop();
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

void MariaDbServer::Stop() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGTERM);
  int status = 0;
  for (int k = 0; k < 300; ++k) {
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
}

std::string MariaDbServer::ConnectionString(const std::string& database) const {
  std::string s = "Provider=MySQLProv;Server=127.0.0.1;Port=" + std::to_string(port_) +
                  ";User ID=root;Password=;";
  if (!database.empty()) s += "Initial Catalog=" + database + ";";
  return s;
}

std::string MariaDbServer::CreateDatabase(const std::string& prefix) {
  const std::string name =
      prefix + "_" + std::to_string(::getpid()) + "_" + std::to_string(next_db_++);
  auto cn = db::Connection::Create();
  cn->Open(ConnectionString());
  cn->Execute("CREATE DATABASE `" + name + "` CHARACTER SET utf8mb4");
  return name;
}

}  // namespace gw::testing
