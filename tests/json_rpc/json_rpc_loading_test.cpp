// Loading and unloading by ACE itself. The library of the handlers, other than most, agrees to be
// unloaded, so that what is closed really goes.
#include <ace/Dynamic_Service.h>
#include <ace/Service_Config.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json_rpc/json_rpc_conf.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"

namespace {

struct LoadingTest : ::testing::Test {
  ~LoadingTest() override { JSON_RPC_Request_Map::close_instance(); }

  bool is_loaded() const {
    void* const handle = ::dlopen(plugin.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) ::dlclose(handle);
    return handle != nullptr;
  }

  std::string record(const std::string& init, const std::string& params) const {
    return "[{\"method\": \"m\", \"dll\": \"" + plugin + "\", \"init\": \"" + init +
           "\", \"params\": \"" + params + "\"}]";
  }

  std::size_t load(const std::string& init, const std::string& params) {
    Temporary_File file(record(init, params));
    JSON_RPC_Conf reader;
    return load_json_config(file.path().c_str(), reader);
  }

  const std::string plugin = TEST_PLUGIN_DIR "/unloading_plugin.so";
  Log_Capture log;
};

TEST_F(LoadingTest, AFailedRecordLeavesNoLibraryBehind) {
  const struct {
    const char* init;
    const char* params;
  } cases[] = {{"make_nothing", ""},      {"make_null", ""},         {"make_throwing", ""},
               {"make_throwing_int", ""}, {"make_handler", "throw"}, {"make_handler", "return=-1"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.init) + " " + c.params);
    EXPECT_EQ(1u, load(c.init, c.params));
    EXPECT_FALSE(is_loaded());
  }
}

TEST_F(LoadingTest, ALibraryStaysWhileOneOfItsObjectsIsRegistered) {
  EXPECT_EQ(0u, load("make_handler", "first"));
  EXPECT_EQ(1u, load("make_handler", "second"));
  EXPECT_TRUE(is_loaded());
  JSON_RPC_Request_Map::close_instance();
  EXPECT_FALSE(is_loaded());
}

TEST_F(LoadingTest, TheConfiguratorStartsAndStopsTheService) {
  const std::vector<std::string> life = {"init [a]\n", "gobbled\n", "destroyed\n"};
  Temporary_File methods(record("make_handler", "a"));
  const std::string load = "dynamic JSON_RPC Service_Object * " JSON_RPC_LIBRARY
                           ":_make_JSON_RPC_Service() \"-j " +
                           methods.path() + " -n 2";
  ASSERT_EQ(0, ACE_Service_Config::open("json_rpc_tests", nullptr, true, true, true));
  EXPECT_EQ(0, ACE_Service_Config::process_directive((load + "\"").c_str()));
  EXPECT_NE(nullptr, ACE_Dynamic_Service<ACE_Service_Object>::instance("JSON_RPC"));
  EXPECT_NE(nullptr, JSON_RPC_Request_Map::instance()->find("m"));
  EXPECT_EQ(0, ACE_Service_Config::process_directive("remove JSON_RPC"));
  EXPECT_EQ(life, log.texts(LM_NOTICE));

  // Where init fails fini is not called, and yet all goes.
  log.clear();
  EXPECT_EQ(1, ACE_Service_Config::process_directive((load + " -h 1\"").c_str()));
  EXPECT_EQ(life, log.texts(LM_NOTICE));
  ACE_Service_Config::close();
}

}  // namespace
