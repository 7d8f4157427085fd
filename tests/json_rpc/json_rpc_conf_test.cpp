#include "json_rpc/json_rpc_conf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "json_rpc/json_restful_conf.h"
#include "json_rpc/json_rpc_params_conf.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

const std::string plugin = TEST_PLUGIN_DIR "/test_plugin.so";

std::string record(const std::string& name, const std::string& dll, const std::string& init,
                   const std::string& params = "", const char* key = "method") {
  return "{\"" + std::string(key) + "\": \"" + name + "\", \"dll\": \"" + dll + "\", \"init\": \"" +
         init + "\", \"params\": \"" + params + "\"}";
}

struct ConfTest : ::testing::Test {
  ~ConfTest() override {
    JSON_RPC_Request_Map::close_instance();
    JSON_RPC_Params_Handler_Map::close_instance();
    JSON_RESTful_Handler_Creator_Map::close_instance();
  }

  template <typename Conf = JSON_RPC_Conf>
  size_t load(const std::string& records) {
    Temporary_File file("[" + records + "]");
    log.clear();
    Conf reader;
    return load_json_config(file.path().c_str(), reader);
  }

  static bool found(const char* method) {
    return JSON_RPC_Request_Map::instance()->find(method) != nullptr;
  }

  /// What the plug-in told of itself since the last load().
  std::vector<std::string> events() const { return log.texts(LM_NOTICE); }
  std::vector<std::string> errors() const { return log.texts(LM_ERROR); }

  Log_Capture log;
};

TEST_F(ConfTest, ParamsReachInitAsWords) {
  ::setenv("TEST_VALUE", "a b", 1);
  EXPECT_EQ(0u, load(record("m", plugin, "make_handler", "one 'two three' $TEST_VALUE")));
  EXPECT_THAT(events(), ElementsAre("init [one][two three][a b]\n"));
  EXPECT_THAT(errors(), IsEmpty());
  EXPECT_THAT(log.texts(LM_DEBUG),
              ElementsAre("Loaded JSON-RPC handler(uri='m', dll='" + plugin +
                          "', init='make_handler', params='one 'two three' $TEST_VALUE')\n"));
  EXPECT_TRUE(found("m"));
  EXPECT_FALSE(found("n"));

  log.clear();
  JSON_RPC_Request_Map::close_instance();
  EXPECT_THAT(events(), ElementsAre("gobbled\n", "destroyed\n"));
  EXPECT_FALSE(found("m"));
}

TEST_F(ConfTest, OnlyMinusOneRefusesARecord) {
  EXPECT_EQ(1u, load(record("a", plugin, "make_handler", "return=-1") + "," +
                     record("b", plugin, "make_handler", "return=1") + "," +
                     record("c", plugin, "make_handler", "return=-2")));
  EXPECT_THAT(errors(),
              ElementsAre("Failed to init JSON-RPC handler for method 'a': Permission denied\n"));
  EXPECT_FALSE(found("a"));
  EXPECT_TRUE(found("b"));
  EXPECT_TRUE(found("c"));
}

TEST_F(ConfTest, TheFirstOfAMethodStays) {
  ASSERT_EQ(0u, load(record("m", plugin, "make_handler", "first")));
  JSON_RPC_Handler* const first = JSON_RPC_Request_Map::instance()->find("m");
  EXPECT_EQ(1u, load(record("m", plugin, "make_handler", "second")));
  EXPECT_THAT(errors(), ElementsAre("Failed to load JSON-RPC handelr(uri='m', dll='" + plugin +
                                    "', init='make_handler', params='second')\n"));
  EXPECT_THAT(events(), ElementsAre("init [second]\n", "gobbled\n", "destroyed\n"));
  EXPECT_EQ(first, JSON_RPC_Request_Map::instance()->find("m"));
}

TEST_F(ConfTest, EveryFailureSaysWhy) {
  const std::string method = "JSON-RPC handler for method 'm'";
  const struct {
    std::string init;
    std::string params;
    std::string error;
    std::vector<std::string> events;
  } cases[] = {
      {"make_nothing", "", "Unable to get symbol 'make_nothing' from dll '" + plugin + "': ", {}},
      {"", "", "Unable to get symbol '' from dll '" + plugin + "': ", {}},
      {"make_null", "", "Failed to create " + method + ": No space left on device\n", {}},
      {"make_throwing",
       "",
       "The factory of the " + method + " threw an exception: no object\n",
       {}},
      {"make_throwing_int",
       "",
       "The factory of the " + method + " threw an exception: unknown exception\n",
       {}},
      {"make_handler",
       "throw",
       "init of the " + method + " threw an exception: no init\n",
       {"init [throw]\n", "gobbled\n", "destroyed\n"}},
      {"make_handler",
       "$" + std::string(4000, 'a') + "'" + std::string(96, 'a') + "'",
       "Failed to init " + method + ": Argument list too long\n",
       {"gobbled\n", "destroyed\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    EXPECT_EQ(1u, load(record("m", plugin, c.init, c.params)));
    EXPECT_THAT(errors(), ElementsAre(StartsWith(c.error)));
    EXPECT_EQ(c.events, events());
    EXPECT_FALSE(found("m"));
  }
  EXPECT_EQ(2u, load(record("m", "./nowhere.so", "make_handler") + ",{\"method\": \"n\"}"));
  EXPECT_THAT(errors(), ElementsAre(StartsWith("Unable to open dll './nowhere.so': "),
                                    StartsWith("Unable to open dll '': ")));
}

TEST_F(ConfTest, ARefusedObjectWithoutGobblerIsLeftAloneButARegisteredOneIsDeleted) {
  EXPECT_EQ(1u, load(record("m", plugin, "make_without_gobbler", "return=-1")));
  EXPECT_THAT(events(), ElementsAre("init [return=-1]\n"));
  ACE_DLL dll(plugin.c_str(), RTLD_NOW);
  reinterpret_cast<void (*)()>(dll.symbol("delete_without_gobbler"))();

  EXPECT_EQ(0u, load(record("m", plugin, "make_without_gobbler")));
  JSON_RPC_Request_Map::close_instance();
  EXPECT_THAT(events(), ElementsAre("init \n", "destroyed\n"));
}

TEST_F(ConfTest, ParamsFiltersGoToARegistryOfTheirOwn) {
  EXPECT_EQ(2u, load<JSON_RPC_Params_Conf>(record("m", plugin, "make_creator", "x") + "," +
                                           record("n", plugin, "make_null") + "," +
                                           record("m", plugin, "make_creator")));
  EXPECT_THAT(
      errors(),
      ElementsAre(
          "Failed to create JSON-RPC Params handler for method 'n': No space left on device\n",
          "Failed to load JSON-RPC Params handelr(uri='m', dll='" + plugin +
              "', init='make_creator', params='')\n"));
  EXPECT_NE(nullptr, JSON_RPC_Params_Handler_Map::instance()->find("m"));
  EXPECT_FALSE(found("m"));
}

TEST_F(ConfTest, RESTfulCreatorsKeepTheirArguments) {
  EXPECT_EQ(1u, load<JSON_RESTful_Conf>(record("/a", plugin, "make_restful", "word", "uri") + "," +
                                        record("/b", plugin, "make_restful", "", "method")));
  EXPECT_THAT(
      errors(),
      ElementsAre(MatchesRegex(".*:1: Skipped a bad record: its member \"method\" is unknown.\n")));
  Object_Creator_T<JSON_RESTful_Handler>* const creator =
      JSON_RESTful_Handler_Creator_Map::instance()->find("/a");
  ASSERT_NE(nullptr, creator);
  JSON_RESTful_Handler* const handler = creator->create();
  EXPECT_THAT(events(), ElementsAre("creates with word\n"));
  EXPECT_EQ(JSON_RESTful_Handler::INHERITED, handler->concurrency());
  creator->destroy(handler);
}

}  // namespace
