// The exported host interface: a host class derives from it, is copied and assigned, and
// is destroyed through the interface.
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "Basics.h"  // a host sees the interface through the library's one header

namespace {

// The interface alone cannot be made: it is abstract and its constructor is for derived
// classes only. Its copy constructor and assignment are public, so a derived class is
// made, copied and assigned like any value, and deleted through the interface.
struct Bare : CKestrelInterface {
  void Operation1() override {}
  void Operation2() override {}
  void Operation3() override {}
  void Operation4() override {}
  void Operation5() override {}
};
static_assert(std::is_abstract_v<CKestrelInterface>);
static_assert(std::is_polymorphic_v<CKestrelInterface>);
static_assert(std::has_virtual_destructor_v<CKestrelInterface>);
static_assert(!std::is_default_constructible_v<CKestrelInterface>);
static_assert(std::is_copy_assignable_v<CKestrelInterface>);
static_assert(std::is_default_constructible_v<Bare>);
static_assert(std::is_copy_constructible_v<Bare> && std::is_copy_assignable_v<Bare>);

// A host's implementation: each operation leaves its mark in the log, and the destructor
// reports itself through destroyed.
class HostObject : public CKestrelInterface {
 public:
  HostObject(std::string name, int* destroyed) : name_(std::move(name)), destroyed_(destroyed) {}
  ~HostObject() override { ++*destroyed_; }
  void Operation1() override { log_ += "1"; }
  void Operation2() override { log_ += "2"; }
  void Operation3() override { log_ += "3"; }
  void Operation4() override { log_ += "4"; }
  void Operation5() override { log_ += "5"; }

  const std::string& name() const { return name_; }
  const std::string& log() const { return log_; }

 private:
  std::string name_;
  int* destroyed_;
  std::string log_;
};

TEST(KestrelInterfaceTest, HostClassDerivesCopiesAndIsDestroyedThroughTheInterface) {
  int destroyed = 0;
  {
    HostObject first("first", &destroyed);
    CKestrelInterface& face = first;
    face.Operation1();
    face.Operation5();
    HostObject copy(first);  // the host's members are copied; the interface has none
    HostObject other("other", &destroyed);
    other = first;
    CKestrelInterface& target = other;
    EXPECT_EQ(&(target = face), &target);  // assignment through the interface copies nothing
    EXPECT_EQ(copy.name() + ":" + copy.log() + " " + other.name() + ":" + other.log(),
              "first:15 first:15");
  }
  EXPECT_EQ(destroyed, 3);

  std::unique_ptr<CKestrelInterface> owned = std::make_unique<HostObject>("owned", &destroyed);
  owned->Operation3();
  owned.reset();  // the host's destructor runs through the interface
  EXPECT_EQ(destroyed, 4);
}

}  // namespace
