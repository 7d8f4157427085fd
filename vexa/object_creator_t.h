#pragma once

#include <ace/OS_Memory.h>
#include <ace/OS_NS_stdlib.h>
#include <ace/OS_NS_string.h>

/// Supplies objects of one kind on demand and keeps the arguments for them. A plug-in library
/// derives from it, implements create() and destroy(), and hands argc_ and argv_ to what it
/// creates. Initialised once, before other threads use it; no lock.
template <typename Object>
class Object_Creator_T {
public:
  typedef Object object_type;

  Object_Creator_T() = default;
  Object_Creator_T(const Object_Creator_T&) = delete;
  Object_Creator_T& operator=(const Object_Creator_T&) = delete;
  virtual ~Object_Creator_T() { clear(); }

  /// Keeps a private copy of the arguments in place of the earlier ones. Kept: a null `argv` still
  /// records `argc`. -1 with errno ENOMEM when memory runs out; the copies made so far stay until
  /// the next clear().
  virtual int init(int argc, char** argv);
  /// Not called by the registries: destruction goes straight to the gobbler.
  virtual int fini() { return 0; }

  /// A new object, to be given back to destroy() of this creator; null on failure.
  virtual object_type* create() = 0;
  virtual void destroy(object_type* object) = 0;

  /// Frees the kept arguments.
  void clear();

protected:
  int argc_ = 0;
  char** argv_ = nullptr;  ///< owned, argc_ owned texts and no terminating null; or null
};

template <typename Object>
int Object_Creator_T<Object>::init(int argc, char** argv) {
  clear();
  argc_ = argc;
  if (argv == nullptr) return 0;
  argv_ = static_cast<char**>(ACE_OS::calloc(argc, sizeof(char*)));
  if (argv_ == nullptr) return -1;
  for (int i = 0; i < argc; ++i) {
    argv_[i] = ACE_OS::strdup(argv[i]);
    if (argv_[i] == nullptr) return -1;
  }
  return 0;
}

template <typename Object>
void Object_Creator_T<Object>::clear() {
  if (argv_ != nullptr) {
    for (int i = 0; i < argc_; ++i) ACE_OS::free(argv_[i]);
    ACE_OS::free(argv_);
    argv_ = nullptr;
  }
  argc_ = 0;
}
