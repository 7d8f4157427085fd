#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "tests/process/host_client.h"
#include "tests/process/host_process.h"

/// The call that shows that somebody is served, and its answer.
const std::string echo = request("echo", "1", "1");
const std::string echoed = result("1", "1");

/// A host that is stopped in order, after the test's clients have gone.
class Host_Fixture : public ::testing::Test {
protected:
  void start(Words options = {}, const std::string& pool = "-n 4") {
    Host_Setup setup(std::move(options));
    setup.pool = pool;
    start_as(setup);
  }
  void start_as(const Host_Setup& setup) {
    host_ = std::make_unique<Host_Process>(setup);
    ASSERT_TRUE(host_->ready());
  }
  void TearDown() override {
    if (host_ != nullptr) host_->stop();
  }
  const std::string& url() const { return host_->url(); }

  std::unique_ptr<Host_Process> host_;
};
