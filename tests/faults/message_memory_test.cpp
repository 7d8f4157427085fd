// Reading and writing messages when memory fails.

#include <ace/Lock_Adapter_T.h>
#include <ace/Thread_Mutex.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "json_rpc/json_rpc_forward_map.h"
#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_params_handler_creator.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "json_rpc/json_rpc_reader.h"
#include "json_rpc/json_rpc_writer.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/in_pieces.h"
#include "tests/support/json_rpc_fixture.h"
#include "vexa/yajl_gen.h"

using json_spirit::Value;

namespace {

const char* const long_text = "a text that is too long to be kept in place, by far";

std::string text_of(const JSON_RPC_Object& object) {
  std::string text;
  YAJL_String_Printer printer(text);
  JSON_RPC_Writer writer;
  writer.write(object, printer);
  return text;
}

bool read(JSON_RPC_Reader& reader, const Pieces& pieces) {
  if (!reader.open()) return false;
  for (const auto& piece : pieces) {
    if (!reader.read(piece.data(), piece.size())) return false;
  }
  return reader.read(nullptr, 0);
}

/// Collects what it sees, as filters do.
class Collecting_Filter final : public YAJL_Handler {
  bool handle_string_i(const char* text, std::size_t length) override {
    seen_.emplace_back(text, length);
    return true;
  }
  std::vector<std::string> seen_;
};

class Filter_Creator final : public JSON_RPC_Params_Handler_Creator {
public:
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    return new Collecting_Filter;
  }
};

TEST(MessageMemoryTest, ReaderRefusesWhatItCannotHoldAndReadsOn) {
  JSON_RPC_Params_Handler_Map::instance()->insert(
      "filtered", "", new Filter_Creator,
      [](void* creator) { delete static_cast<Filter_Creator*>(creator); });
  const std::string text(long_text);
  const std::string texts[] = {
      R"({"jsonrpc":"2.0","id":")" + text + R"(","method":")" + text + R"(","params":{"a":[1,")" +
          text + R"(",{}],"b":")" + text + R"("}})",
      R"({"jsonrpc":"2.0","method":"m","params":[[[1]],2.5,null]})",
      R"({"jsonrpc":"2.0","id":1,"method":"filtered","params":[")" + text + R"(",{"a":")" + text +
          R"("}]})",
      R"({"jsonrpc":")" + text + R"(","id":7,"result":{"x":")" + text + R"("}})",
      R"({"jsonrpc":"2.0","id":7,"error":{"code":-5,"message":")" + text + R"(","data":[")" + text +
          R"("]}})",
  };
  for (const std::string& t : texts) {
    SCOPED_TRACE(t);
    for (const std::size_t piece : {t.size(), std::size_t(1)}) {
      const Pieces pieces = cut_text(t, piece, piece);
      std::string expected;
      at_every_allocation([&](Failing_Memory& memory) {
        JSON_RPC_Reader reader;
        reader.mode(JSON_RPC_Reader::FILTER_REQUEST_MODE);
        bool accepted = false;
        memory([&] { accepted = read(reader, pieces); });
        EXPECT_TRUE(accepted ||
                    (memory.hit() && reader.error() == JSON_RPC_Reader::ERROR_NO_MEMORY));
        for (int again = 0; again < 2; ++again) {
          if (accepted) {
            const std::string message = text_of(*reader.object());
            if (expected.empty()) expected = message;
            EXPECT_EQ(expected, message);
          }
          accepted = read(reader, pieces);
          EXPECT_TRUE(accepted) << "the next message";
        }
      });
    }
  }
  JSON_RPC_Params_Handler_Map::close_instance();
}

typedef ACE_Lock_Adapter<ACE_Thread_Mutex> Io_Lock;

/// Gets answers over a stream that a lock guards; the stream can break at any byte.
class Requester final : public Fake_Channel, private YAJL_Printer {
public:
  explicit Requester(long bytes) : left_(bytes) { lock = &lock_; }
  yajl_gen_t* send_begin() override {
    begun_ = true;
    if (left_ < 0) return nullptr;
    return writer_.open(*this);
  }
  int send_end() override {
    writer_.close();
    if (broken_ || fails_to_end) return errno = EPIPE, -1;
    ended_ = true;
    return 0;
  }
  bool free() {
    if (lock_.tryacquire() == -1) return false;
    lock_.release();
    return true;
  }
  bool begun() const { return begun_; }
  bool ended() const { return ended_; }
  const std::string& stream() const { return stream_; }

  bool fails_to_end = false;
  bool throws = false;

private:
  void print(const char* text, std::size_t length) override {
    if (broken_ || static_cast<long>(length) > left_) {
      broken_ = true;
      if (throws) throw std::runtime_error("the stream is broken");
      return;
    }
    left_ -= static_cast<long>(length);
    const Failing_Memory::Pause pause;
    stream_.append(text, length);
  }

  Io_Lock lock_;
  long left_;
  bool broken_ = false;
  bool begun_ = false;
  bool ended_ = false;
  std::string stream_;
  JSON_RPC_Writer writer_;
};

/// Its answers 1 to `count` are the requester's, under a long id.
class Forwarder final : public Fake_Channel {
public:
  Forwarder(const JSON_RPC_Channel_var& requester, int count) {
    for (int i = 0; i < count; ++i) entries_.put(long_text, requester);
  }
  int get_forward_entry(int id, JSON_RPC_Channel_ptr& requester, Value& original) override {
    JSON_RPC_Forward_Map::data_type data(Value::null, none());
    if (entries_.get(id, data) == -1) return -1;
    original = std::move(data.first);
    requester = data.second;
    return 0;
  }

private:
  JSON_RPC_Forward_Map entries_;
};

const std::string relayed = std::string(R"({"jsonrpc":"2.0","id":")") + long_text +
                            R"(","result":[1,{"a":")" + long_text + R"("}]})";

std::string answer(int id) {
  return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"result":[1,{"a":")" + long_text +
         R"("}]})";
}

TEST(MessageMemoryTest, RelayLetsTheRequesterGoWhateverFails) {
  at_every_allocation([](Failing_Memory& memory) {
    Requester* const requester = new Requester(LONG_MAX);
    const JSON_RPC_Channel_var requester_var(requester);
    const JSON_RPC_Channel_var forwarder(new Forwarder(requester_var, 2));
    JSON_RPC_Reader reader;
    reader.mode(JSON_RPC_Reader::FORWARD_RESPONSE_MODE);
    const std::string first = answer(1);
    const std::string second = answer(2);
    const auto relay = [&](const std::string& text) {
      if (!reader.open()) return false;
      reader.channel(forwarder);
      return reader.read(text.data(), text.size()) && reader.read(nullptr, 0);
    };
    bool accepted = false;
    memory([&] {
      accepted = relay(first);
      reader.close();
    });
    EXPECT_TRUE(accepted || memory.hit());
    EXPECT_TRUE(requester->free()) << "nobody holds the requester's lock";
    EXPECT_EQ(accepted, requester->ended());
    if (accepted) {
      EXPECT_EQ(relayed, requester->stream());
    }
    if (!requester->begun() || accepted) {
      EXPECT_TRUE(relay(second));
    }
    reader.close();
    EXPECT_TRUE(requester->free());
  });
}

TEST(MessageMemoryTest, RelayIntoAStreamThatBreaksIsNoAnswer) {
  const Quiet_Log quiet;
  const std::string text = answer(1);
  for (const bool throws : {false, true}) {
    for (long bytes = -1; bytes <= static_cast<long>(relayed.size()) + 1; ++bytes) {
      SCOPED_TRACE(bytes);
      Requester* const requester = new Requester(bytes);
      requester->throws = throws;
      requester->fails_to_end = bytes > static_cast<long>(relayed.size());
      const JSON_RPC_Channel_var requester_var(requester);
      const JSON_RPC_Channel_var forwarder(new Forwarder(requester_var, 1));
      JSON_RPC_Reader reader;
      reader.mode(JSON_RPC_Reader::FORWARD_RESPONSE_MODE);
      reader.open();
      reader.channel(forwarder);
      const bool whole = bytes == static_cast<long>(relayed.size());
      EXPECT_EQ(whole, reader.read(text.data(), text.size()));
      EXPECT_EQ(whole, requester->ended());
      EXPECT_EQ(0u, relayed.compare(0, requester->stream().size(), requester->stream()));
      reader.close();
      EXPECT_TRUE(requester->free());
    }
  }
}

/// Writes params of every kind.
class Params final : public JSON_Generator {
public:
  bool generate_i(YAJL_Gen& gen) override {
    gen.array_open();
    gen << long_text << "\xff";
    return gen.array_close();
  }
};

/// Breaks at any byte.
class Breaking_Printer final : public YAJL_Printer {
public:
  explicit Breaking_Printer(std::size_t bytes) : left_(bytes) {}
  void print(const char*, std::size_t length) override {
    if (length > left_) throw std::runtime_error("no more");
    left_ -= length;
  }

private:
  std::size_t left_;
};

/// What `write` lets out is the printer's exception and nothing else; the writer is good for the
/// next message.
TEST(MessageMemoryTest, WriterOutlivesItsPrinter) {
  const Quiet_Log quiet;
  JSON_RPC_Response response(nullptr);
  response.id = long_text;
  response.result = json_spirit::Array{long_text, std::string("\xff") + long_text, 2.5, Value()};
  Params params;
  JSON_RPC_Request_Generator generator("m", &params);
  for (const bool generated : {false, true}) {
    const auto write = [&](JSON_RPC_Writer& writer, YAJL_Printer& printer) {
      return generated ? writer.write(generator, printer) : writer.write(response, printer);
    };
    std::string whole;
    {
      JSON_RPC_Writer writer;
      YAJL_String_Printer printer(whole);
      ASSERT_TRUE(write(writer, printer));
    }
    for (std::size_t bytes = 0; bytes <= whole.size(); ++bytes) {
      SCOPED_TRACE(bytes);
      JSON_RPC_Writer writer;
      Breaking_Printer breaking(bytes);
      bool written = false;
      try {
        written = write(writer, breaking);
      } catch (const std::runtime_error&) {
      }
      EXPECT_EQ(bytes == whole.size(), written);
      std::string text;
      YAJL_String_Printer printer(text);
      EXPECT_TRUE(write(writer, printer));
      EXPECT_EQ(whole, text);
    }
    at_every_allocation([&](Failing_Memory& memory) {
      std::string text;
      YAJL_String_Printer printer(text);
      JSON_RPC_Writer writer;
      bool written = false;
      memory([&] {
        try {
          written = write(writer, printer);
        } catch (const std::bad_alloc&) {
        }
      });
      EXPECT_EQ(written, !memory.hit());
      if (written) {
        EXPECT_EQ(whole, text);
      }
      text.clear();
      EXPECT_TRUE(write(writer, printer));
      EXPECT_EQ(whole, text);
    });
  }
}

}  // namespace
