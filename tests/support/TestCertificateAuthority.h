#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace quorvane::testing {

// A private certificate authority and a certificate for 127.0.0.1 that it signed, made by the
// openssl program in a temporary folder, for the TLS servers that tests start (a
// ScriptedHTTPServer over HTTPS, quorvane-relay).
class TestCertificateAuthority {
 public:
  std::filesystem::path ca() const { return folder_.path() / "ca.pem"; }
  std::filesystem::path certificate() const { return folder_.path() / "server.pem"; }
  std::filesystem::path key() const { return folder_.path() / "server.key"; }

  // Makes the authority and the server's certificate; whether openssl made every file. `name`
  // goes into the authority's common name.
  bool make(const std::string& name) {
    auto path = [&](const char* file) { return (folder_.path() / file).string(); };
    writeFile(path("server.cnf"), "subjectAltName=IP:127.0.0.1\nbasicConstraints=CA:FALSE\n");
    const std::vector<std::string> newKey = {"-newkey", "ec", "-pkeyopt",
                                             "ec_paramgen_curve:prime256v1", "-nodes"};
    auto run = [](std::vector<std::string> arguments, const std::vector<std::string>& more) {
      arguments.insert(arguments.begin() + 2, more.begin(), more.end());
      return runCommand(arguments).exitCode == 0;
    };
    return run({"openssl", "req", "-x509", "-keyout", path("ca.key"), "-out", path("ca.pem"),
                "-subj", "/CN=Quorvane test CA " + name, "-days", "2"},
               newKey) &&
           run({"openssl", "req", "-keyout", path("server.key"), "-out", path("server.csr"),
                "-subj", "/CN=127.0.0.1"},
               newKey) &&
           run({"openssl", "x509", "-req", "-in", path("server.csr"), "-CA", path("ca.pem"),
                "-CAkey", path("ca.key"), "-CAcreateserial", "-out", path("server.pem"), "-days",
                "2", "-extfile", path("server.cnf")},
               {});
  }

 private:
  TemporaryDirectory folder_;
};

}  // namespace quorvane::testing
