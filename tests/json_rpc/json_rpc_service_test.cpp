#include "json_rpc/json_rpc_service.h"

#include <ace/Thread_Manager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "json_rpc/json_restful_handler_creator_map.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_thread_handler.h"
#include "tests/support/fake_channel.h"
#include "tests/support/gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"
#include "vexa/adopt.h"
#include "vexa/http_file_uri_map.h"

namespace {

using ::testing::ElementsAre;

const std::string plugin = TEST_PLUGIN_DIR "/test_plugin.so";

std::string record(const char* key, const char* name, const char* init, const char* params) {
  return std::string("[{\"") + key + "\": \"" + name + "\", \"dll\": \"" + plugin +
         "\", \"init\": \"" + init + "\", \"params\": \"" + params + "\"}]";
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

  Log_Capture log;
  JSON_RPC_Service service;
};

TEST_F(ServiceTest, OptionsStartThePool) {
  const std::string started = "JSON-RPC thread pool(number: ";
  const std::string failed = "Failed to activate JSON-RPC thread pool(number: ";
  const struct {
    std::vector<std::string> options;
    int result;
    std::string text;
  } cases[] = {
      {{}, 0, ""},
      {{"-n", "abc"}, 0, ""},
      {{"-n", "4"}, 0, started + "4, low/high water mark: 512/1024) is activated.\n"},
      {{"--jsonrpc-thread-number=2", "--jsonrpc-thread-queue-hwm", "20", "-l10"},
       0,
       started + "2, low/high water mark: 10/20) is activated.\n"},
      {{"-n1", "-n3", "-h9x", "--jsonrpc-thread-queue-lwm", "+9"},
       0,
       started + "3, low/high water mark: 9/9) is activated.\n"},
      {{"-n", "4", "-h", "100"}, -1, failed + "4, low/high water mark: 512/100).\n"},
      {{"-n", "4", "-l", "-1"}, -1, failed + "4, low/high water mark: 0/1024).\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    log.clear();
    JSON_RPC_Service fresh;
    EXPECT_EQ(c.result, init(fresh, c.options));
    EXPECT_EQ(!c.text.empty(), log.contains(c.result == 0 ? LM_INFO : LM_ERROR, c.text));
    if (c.text.empty()) {
      EXPECT_EQ(0u, log.size());
    }
    EXPECT_EQ(0, fresh.fini());
  }
}

TEST_F(ServiceTest, FilesAreLoadedInOrderAndAllButRESTfulCreatorsGo) {
  Temporary_File first(record("method", "m", "make_handler", "first"));
  Temporary_File second(record("method", "m", "make_handler", "second"));
  Temporary_File filters(record("method", "f", "make_creator", "filter"));
  Temporary_File restful(record("uri", "/r", "make_restful", ""));
  EXPECT_EQ(0, init(service, {"-x", "-j", first.path(), "--jsonrpc", second.path(), "--no-such",
                              "stray", "--jsonrpc-params-filter", filters.path(),
                              "--restful=" + restful.path(), "-j", "/no/such/file", "-n"}));
  EXPECT_THAT(
      log.texts(LM_ERROR),
      ElementsAre("Unknown JSON_RPC_Service option -x\n",
                  "Failed to load JSON-RPC handelr(uri='m', dll='" + plugin +
                      "', init='make_handler', params='second')\n",
                  "Unknown JSON_RPC_Service option --no-such\n",
                  "/no/such/file: Failed to read configuration: No such file or directory\n",
                  "Unknown JSON_RPC_Service option -n\n"));
  EXPECT_EQ(5u, JSON_RPC_Service::failures());
  HTTP_File_URI_Map::instance()->insert("/", "root");
  log.clear();
  EXPECT_EQ(0, service.fini());
  EXPECT_THAT(log.texts(LM_NOTICE),
              ElementsAre("gobbled\n", "destroyed\n", "gobbled\n", "creator destroyed\n"));
  EXPECT_NE(nullptr, JSON_RESTful_Handler_Creator_Map::instance()->find("/r"));
  size_t length = 0;
  EXPECT_EQ(nullptr, HTTP_File_URI_Map::instance()->find("/", length));
  EXPECT_EQ(0, service.fini());
}

struct Solo : JSON_RPC_Thread_Handler {
  explicit Solo(std::string& e) : events(e) {}
  ~Solo() override { events += " destroyed"; }
  int handle_object_i(JSON_RPC_Channel_var, JSON_RPC_Object_var) override {
    started.arrive();
    go_on.wait();
    events += "ended";
    return 0;
  }
  std::string& events;
  Gate started, go_on;
};

TEST_F(ServiceTest, FiniWaitsForCallsOnTheirOwnThreads) {
  std::string events;
  ASSERT_EQ(0, service.init(0, nullptr));
  Solo* const solo = new Solo(events);
  ASSERT_EQ(0, JSON_RPC_Request_Map::instance()->insert("solo", "", solo, nullptr));
  JSON_RPC_Object_var request;
  vexa::adopt<JSON_RPC_Object_var, JSON_RPC_Object>(request, new JSON_RPC_Request);
  const JSON_RPC_Channel_var channel = make_fake_channel();
  ASSERT_EQ(0, solo->handle_object(JSON_RPC_Channel_ptr(channel), request));
  solo->started.wait();
  Gate stopping;
  std::thread opener([&] { stopping.wait(), solo->go_on.arrive(); });
  stopping.arrive();
  EXPECT_EQ(0, service.fini());
  opener.join();
  EXPECT_EQ("ended destroyed", events);
  ACE_Thread_Manager::instance()->wait();
}

}  // namespace
