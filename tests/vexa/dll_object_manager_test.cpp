#include "vexa/dll_object_manager_t.h"

#include <gtest/gtest.h>

namespace {

std::string gone;  // names of destroyed objects, each with "-" in front when gobbled

struct Thing {
  explicit Thing(const char* n) : name(n) {}
  virtual ~Thing() { gone += name; }
  const char* name;
};

void gobble(void* p) {
  gone += "-";
  delete static_cast<Thing*>(p);
}

typedef void (*Gobbler)(void*);

TEST(DLLObjectManagerTest, TheFirstOfANameWinsAndAllGoInDescendingOrder) {
  gone.clear();
  Thing late("l");
  {
    DLL_Object_Manager_T<Thing, Gobbler, ACE_Null_Mutex, DLL_Object_Manager_Default_Tag> manager;
    ASSERT_EQ(0, manager.insert("/b", "", new Thing("b"), nullptr));
    ASSERT_EQ(0, manager.insert("/a", "", new Thing("a"), gobble));
    ASSERT_EQ(0, manager.insert("/c", "", new Thing("c"), nullptr));
    ASSERT_EQ(0, manager.insert("/d", "", new Thing("d"), gobble));
    EXPECT_EQ(-1, manager.insert("/a", "", &late, gobble));
    ASSERT_NE(nullptr, manager.find("/a"));
    EXPECT_STREQ("a", manager.find("/a")->name);
    EXPECT_EQ(nullptr, manager.find("/e"));
    size_t length = 9;
    EXPECT_EQ(nullptr, manager.find("/ab/b", '/', length));
    EXPECT_EQ(9u, length);
    EXPECT_EQ(manager.find("/a"), manager.find("/a/bc", '/', length));
    EXPECT_EQ(2u, length);
    EXPECT_EQ("", gone);
    EXPECT_EQ(0, manager.remove("/d"));
    EXPECT_EQ(-1, manager.remove("/d"));
    EXPECT_EQ("-d", gone);
    std::string names;
    manager.for_each_name([&names](const std::string& name) { names += name; });
    EXPECT_EQ("/a/b/c", names);
  }
  EXPECT_EQ("-dcb-a", gone);
}

}  // namespace
