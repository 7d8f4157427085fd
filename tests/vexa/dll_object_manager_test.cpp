#include "vexa/dll_object_manager_t.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> gone;  // names of destroyed objects, "-" in front when gobbled

struct Thing {
  explicit Thing(std::string n) : name(std::move(n)) {}
  virtual ~Thing() { gone.push_back(name); }
  std::string name;
};

void gobble(void* p) {
  gone.push_back("-");
  delete static_cast<Thing*>(p);
}

typedef void (*Gobbler)(void*);
typedef DLL_Object_Entry_T<Thing, Gobbler> Entry;
typedef DLL_Object_Entry_Ptr<Thing, Gobbler> Guard;
typedef DLL_Object_Manager_T<Thing, Gobbler, ACE_Null_Mutex, DLL_Object_Manager_Default_Tag>
    Manager;
typedef std::vector<std::string> Names;

struct DLLObjectManagerTest : ::testing::Test {
  DLLObjectManagerTest() { gone.clear(); }
};

TEST_F(DLLObjectManagerTest, EntriesDestroyOnceAndMove) {
  {
    Entry deleted("", new Thing("a"), nullptr);
    Entry gobbled("", new Thing("b"), gobble);
    deleted = std::move(gobbled);
    EXPECT_EQ(Names{"a"}, gone);
    EXPECT_EQ(nullptr, gobbled.obj_);
    EXPECT_EQ(nullptr, gobbled.gobbler_);
    Entry moved(std::move(deleted));
    deleted.destroy();
    EXPECT_EQ(Names{"a"}, gone);
  }
  EXPECT_EQ((Names{"a", "-", "b"}), gone);
}

TEST_F(DLLObjectManagerTest, AGuardGivesBackWhatWasNotDetached) {
  Thing kept("kept");
  {
    Guard detached;
    detached.obj_ = &kept;
    detached.gobbler_ = gobble;
    detached.detach_ = true;
    Guard failed;
    failed.obj_ = new Thing("a");
    failed.gobbler_ = gobble;
  }
  EXPECT_EQ((Names{"-", "a"}), gone);
}

TEST_F(DLLObjectManagerTest, TheFirstOfANameWinsAndAllGoInDescendingOrder) {
  {
    Manager manager;
    ASSERT_EQ(0, manager.insert("b", "", new Thing("b"), nullptr));
    ASSERT_EQ(0, manager.insert("a", "", new Thing("a"), gobble));
    ASSERT_EQ(0, manager.insert("c", "", new Thing("c"), nullptr));
    Thing late("late");
    EXPECT_EQ(-1, manager.insert("a", "", &late, gobble));
    ASSERT_NE(nullptr, manager.find("a"));
    EXPECT_EQ("a", manager.find("a")->name);
    EXPECT_EQ(nullptr, manager.find("d"));

    Names names;
    manager.for_each_name([&](const std::string& name) { names.push_back(name); });
    EXPECT_EQ((Names{"a", "b", "c"}), names);
    EXPECT_EQ(Names(), gone);
    late.name = "ignored";
  }
  EXPECT_EQ((Names{"ignored", "c", "b", "-", "a"}), gone);
}

TEST_F(DLLObjectManagerTest, OneOrAllCanBeRemoved) {
  Manager manager;
  ASSERT_EQ(0, manager.insert("/a", "", new Thing("a"), gobble));
  ASSERT_EQ(0, manager.insert("/a/b", "", new Thing("b"), nullptr));
  Manager::size_type length = 9;
  EXPECT_EQ(nullptr, manager.find("/ab/b", '/', length));
  EXPECT_EQ(9u, length);
  EXPECT_EQ(manager.find("/a"), manager.find("/a/bc", '/', length));
  EXPECT_EQ(2u, length);

  EXPECT_EQ(0, manager.remove("/a"));
  EXPECT_EQ((Names{"-", "a"}), gone);
  EXPECT_EQ(-1, manager.remove("/a"));
  manager.clear();
  EXPECT_EQ((Names{"-", "a", "b"}), gone);
  EXPECT_EQ(nullptr, manager.find("/a/b"));
}

}  // namespace
