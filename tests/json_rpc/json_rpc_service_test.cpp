#include "json_rpc/json_rpc_service.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>

#include "json_rpc/json_restful_handler_creator_map.h"
#include "json_rpc/json_rpc_conf.h"
#include "tests/support/json_rpc_fixture.h"
#include "tests/support/temporary_file.h"
#include "vexa/http_file_uri_map.h"

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

const std::string plugin = TEST_PLUGIN_DIR "/test_plugin.so";

std::string record(const std::string& key, const std::string& name, const std::string& init,
                   const std::string& params = "", const std::string& dll = plugin) {
  return "{\"" + key + "\": \"" + name + "\", \"dll\": \"" + dll + "\", \"init\": \"" + init +
         "\", \"params\": \"" + params + "\"}";
}

struct ServiceTest : ::testing::Test {
  ~ServiceTest() override {
    service.fini();
    JSON_RESTful_Handler_Creator_Map::close_instance();
  }

  static int init(JSON_RPC_Service& service, std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(&word[0]);
    return service.init(static_cast<int>(argv.size()), argv.data());
  }

  size_t load(const std::string& records) {
    Temporary_File file("[" + records + "]");
    log.clear();
    JSON_RPC_Conf reader;
    return load_json_config(file.path().c_str(), reader);
  }

  static bool found(const char* method) {
    return JSON_RPC_Request_Map::instance()->find(method) != nullptr;
  }

  static bool is_loaded() {
    void* const handle = ::dlopen(plugin.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) ::dlclose(handle);
    return handle != nullptr;
  }

  /// What the plug-in told of itself since the last load().
  std::string events() const {
    const std::vector<std::string> texts = log.texts(LM_NOTICE);
    return std::accumulate(texts.begin(), texts.end(), std::string());
  }
  std::vector<std::string> errors() const { return log.texts(LM_ERROR); }

  Log_Capture log;
  JSON_RPC_Service service;
};

TEST_F(ServiceTest, OptionsStartThePool) {
  const struct {
    std::vector<std::string> options;
    int result;
    std::string number, marks;
  } cases[] = {
      {{"-n", "4"}, 0, "4", "512/1024"},
      {{"--jsonrpc-thread-number=2", "--jsonrpc-thread-queue-hwm", "20", "-l10"}, 0, "2", "10/20"},
      {{"-n1", "-n3", "-h9x", "--jsonrpc-thread-queue-lwm", "+9"}, 0, "3", "9/9"},
      {{"-n", "4", "-l", "-1"}, -1, "4", "0/1024"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.marks);
    JSON_RPC_Service fresh;
    EXPECT_EQ(c.result, init(fresh, c.options));
    const std::string pool =
        "JSON-RPC thread pool(number: " + c.number + ", low/high water mark: " + c.marks + ")";
    EXPECT_TRUE(c.result == 0 ? log.contains(LM_INFO, pool + " is activated.\n")
                              : log.contains(LM_ERROR, "Failed to activate " + pool + ".\n"));
    fresh.fini();
  }
  log.clear();
  EXPECT_EQ(0, init(service, {"-n", "abc", "word"}));
  EXPECT_EQ(2u, JSON_RPC_Service::failures()) << "they change nothing, but are counted";
  EXPECT_EQ(2u, log.size());

  // Nothing is left where the pool cannot start, for fini is not called then.
  Temporary_File methods("[" + record("method", "m", "make_handler") + "]");
  EXPECT_EQ(-1, init(service, {"-j", methods.path(), "-n2", "-h1"}));
  EXPECT_FALSE(is_loaded());
}

TEST_F(ServiceTest, FilesAreLoadedInOrderAndAllButRESTfulCreatorsGo) {
  ::setenv("TEST_VALUE", "a b", 1);
  Temporary_File first("[" + record("method", "m", "make_handler", "one 'two three' $TEST_VALUE") +
                       "]");
  Temporary_File second("[" + record("method", "m", "make_handler", "second") + "]");
  Temporary_File filters("[" + record("method", "f", "make_creator") + "," +
                         record("method", "g", "make_null") + "]");
  Temporary_File restful("[" + record("uri", "/r", "make_restful") + "," +
                         record("uri", "/s", "make_null") + "]");
  EXPECT_EQ(0, init(service, {"-x", "-j", first.path(), "--jsonrpc", second.path(), "--no-such",
                              "stray", "--jsonrpc-params-filter", filters.path(),
                              "--restful=" + restful.path(), "-j", "/no/such/file", "-n"}));
  EXPECT_THAT(
      log.texts(LM_ERROR),
      ElementsAre(
          "Unknown JSON_RPC_Service option -x\n",
          "Failed to load JSON-RPC handelr(uri='m', dll='" + plugin +
              "', init='make_handler', params='second')\n",
          "Unknown JSON_RPC_Service option --no-such\n",
          "Failed to create JSON-RPC Params handler for method 'g': No space left on device\n",
          "Failed to create JSON RESTful handler for method '/s': No space left on device\n",
          "/no/such/file: Failed to read configuration: No such file or directory\n",
          "Unknown JSON_RPC_Service option -n\n"));
  EXPECT_EQ("init [one][two three][a b]\ninit [second]\ngobbled a handler\n", events());
  EXPECT_TRUE(found("m")) << "the first of a method stays";
  EXPECT_EQ(8u, JSON_RPC_Service::failures()) << "these and the stray word";
  HTTP_File_URI_Map::instance()->insert("/", "root");
  log.clear();
  EXPECT_EQ(0, service.fini());
  EXPECT_EQ("gobbled a handler\ngobbled a filter\n", events());
  Object_Creator_T<JSON_RESTful_Handler>* const creator =
      JSON_RESTful_Handler_Creator_Map::instance()->find("/r");
  ASSERT_NE(nullptr, creator);
  EXPECT_EQ(nullptr, creator->create());
  size_t length = 0;
  EXPECT_EQ(nullptr, HTTP_File_URI_Map::instance()->find("/", length));
}

TEST_F(ServiceTest, EveryFailureSaysWhyAndLeavesNothingBehind) {
  const std::string method = "JSON-RPC handler for method 'm'";
  const std::string gobbled = "gobbled a handler\n";
  const struct {
    std::string init, params, error, events;
  } cases[] = {
      {"nothing", "", "Unable to get symbol 'nothing' from dll '" + plugin + "': ", ""},
      {"make_null", "", "Failed to create " + method + ": No space left on device\n", ""},
      {"make_throwing", "", "The factory of the " + method + " threw an exception: no obj", ""},
      {"make_handler", "return=-1", "Failed to init " + method + ": Permission denied\n",
       "init [return=-1]\n" + gobbled},
      {"make_handler", "throw", "init of the " + method + " threw an exception: no init\n",
       "init [throw]\n" + gobbled},
      {"make_handler", "$" + std::string(4000, 'a') + "'" + std::string(96, 'a') + "'",
       "Failed to init " + method + ": Argument list too long\n", gobbled},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    EXPECT_EQ(1u, load(record("method", "m", c.init, c.params)));
    EXPECT_THAT(errors(), ElementsAre(StartsWith(c.error)));
    EXPECT_EQ(c.events, events());
    EXPECT_FALSE(found("m"));
    EXPECT_FALSE(is_loaded());
  }
  EXPECT_EQ(2u,
            load(record("method", "m", "make_handler", "", "./no.so") + ",{\"method\": \"n\"}"));
  EXPECT_THAT(errors(), ElementsAre(StartsWith("Unable to open dll './no.so': "),
                                    StartsWith("Unable to open dll '': ")));
}

}  // namespace
