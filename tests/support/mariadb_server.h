// A private MariaDB server for tests: its own data folder below /tmp, listening on a free loopback
// port and on a socket in that folder, started on first use and stopped (by its process id) when
// the test program ends. It never touches a system-wide server.
#pragma once

#include <string>

namespace gw::testing {

class MariaDbServer {
 public:
  // The shared server of this test program; fails the calling test when it cannot start.
  static MariaDbServer& Shared();

  ~MariaDbServer();
  int Port() const { return port_; }
  const std::string& Socket() const { return socket_; }
  // "Provider=MySQLProv;Server=127.0.0.1;Port=<port>;User ID=root;Password=;" plus the database
  // when one is given.
  std::string ConnectionString(const std::string& database = {}) const;
  // Creates a fresh, empty database and returns its name.
  std::string CreateDatabase(const std::string& prefix = "gwtest");

 private:
  MariaDbServer();
  void Stop();

  std::string dir_;
  std::string socket_;
  int port_ = 0;
  int pid_ = -1;
  int next_db_ = 0;
};

}  // namespace gw::testing
