#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/temporary_file.h"

/// A CA and what it has signed, made by the openssl program. NAME.pem has a certificate and its
/// key, ca.pem the CA's certificate alone.
class Certificates {
public:
  Certificates() { run("openssl req -x509 $key -keyout ca.key -out ca.pem -subj /CN=ca"); }

  /// For `names`, written like a subjectAltName.
  void sign(const std::string& name, const std::string& names, int days = 1) const {
    run("openssl req -new $key -keyout k -out r -subj /CN=x && printf subjectAltName=" + names +
        " >e && openssl x509 -req -in r -CA ca.pem -CAkey ca.key -CAcreateserial -extfile e -out c "
        "-days " +
        std::to_string(days) + " && cat c k >" + name + ".pem");
  }
  /// One that the CA has not signed.
  void self_sign(const std::string& name, const std::string& names) const {
    run("openssl req -x509 $key -keyout k -out c -subj /CN=x -addext subjectAltName=" + names +
        " && cat c k >" + name + ".pem");
  }
  std::string file(const std::string& name) const { return directory_ / (name + ".pem"); }

private:
  void run(const std::string& command) const {
    const std::string shell = "exec 2>/dev/null; cd " + directory_ / "" +
                              " && key='-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes' && ";
    EXPECT_EQ(0, std::system((shell + command).c_str())) << command;
  }

  const Temporary_Directory directory_;
};
