#pragma once

#include <ace/ARGV.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>
#include <dlfcn.h>

#include "vexa/dll_object_manager_t.h"
#include "vexa/exception_text.h"
#include "vexa/json_base_conf.h"
#include "vexa/vexa_export.h"

namespace vexa {

/// Whether ACE_ARGV can split the text: it overruns a buffer of its own at the name of an
/// environment variable that is longer than any that could be set. Sets errno E2BIG when it cannot.
VEXA_EXPORT bool can_split(const char* text);

}  // namespace vexa

/// Loads what the records of a configuration file name: opens the library, calls its factory,
/// initialises the new object and registers it, the first of a name for good. `Traits` gives
///
///     typedef ... object_type;          // what the factory makes
///     static constexpr char key[];      // the record's key member
///     static constexpr char name[];     // the kind, for log lines
///     static ... registry();            // a DLL_Object_Manager_T of object_type
///
/// A factory is `object_type* factory(void (**gobbler)(void*))` with C linkage: it returns a new
/// object and stores what destroys it. Libraries are loaded on one thread only.
template <typename Traits>
class JSON_Conf_T : public JSON_Base_Conf {
public:
  JSON_Conf_T() : JSON_Base_Conf(Traits::key, sizeof(Traits::key) - 1) {}

protected:
  bool handle_record() override;

private:
  typedef typename Traits::object_type object_type;
  typedef void (*gobbler_type)(void*);
  typedef object_type* (*factory_type)(gobbler_type*);
  typedef DLL_Object_Entry_Ptr<object_type, gobbler_type> guard_type;

  factory_type find_factory(guard_type& loading);
  bool create_object(guard_type& loading, factory_type factory);
  bool init_object(object_type* obj);
};

// These lines name their source so, whatever the file that they are compiled from.
#define VEXA_JSON_CONF_LOG(PRIORITY, ...)                                   \
  do {                                                                      \
    const int vexa_errno = ACE_OS::last_error();                            \
    ACE_Log_Msg* const vexa_log = ACE_Log_Msg::instance();                  \
    vexa_log->conditional_set("vexa/json_conf_t", __LINE__, 0, vexa_errno); \
    vexa_log->log(PRIORITY, __VA_ARGS__);                                   \
  } while (0)

template <typename Traits>
bool JSON_Conf_T<Traits>::handle_record() {
  guard_type loading;
  const factory_type factory = find_factory(loading);
  if (factory == nullptr) return false;
  if (!create_object(loading, factory) || !init_object(loading.obj_)) return false;
  if (Traits::registry()->insert(uri(), dll(), loading.obj_, loading.gobbler_) != 0) {
    VEXA_JSON_CONF_LOG(
        LM_ERROR, "Failed to load %s handelr(uri='%s', dll='%s', init='%s', params='%s')\n",
        Traits::name, uri().c_str(), dll().c_str(), init().c_str(), params().c_str());
    return false;
  }
  loading.detach_ = true;
  VEXA_JSON_CONF_LOG(LM_DEBUG, "Loaded %s handler(uri='%s', dll='%s', init='%s', params='%s')\n",
                     Traits::name, uri().c_str(), dll().c_str(), init().c_str(), params().c_str());
  return true;
}

template <typename Traits>
typename JSON_Conf_T<Traits>::factory_type JSON_Conf_T<Traits>::find_factory(guard_type& loading) {
  if (loading.open(dll().c_str(), RTLD_NOW) != 0) {
    VEXA_JSON_CONF_LOG(LM_ERROR, "Unable to open dll '%s': %s\n", dll().c_str(),
                       vexa::dll_error(loading.dll_));
    return nullptr;
  }
  void* const symbol = loading.dll_.symbol(init().c_str());
  if (symbol == nullptr) {
    VEXA_JSON_CONF_LOG(LM_ERROR, "Unable to get symbol '%s' from dll '%s': %s\n", init().c_str(),
                       dll().c_str(), vexa::dll_error(loading.dll_));
  }
  return reinterpret_cast<factory_type>(symbol);
}

template <typename Traits>
bool JSON_Conf_T<Traits>::create_object(guard_type& loading, factory_type factory) {
  try {
    errno = 0;  // a factory that fails need not set it, and the line below prints it
    loading.obj_ = factory(&loading.gobbler_);
  } catch (...) {
    VEXA_JSON_CONF_LOG(LM_ERROR,
                       "The factory of the %s handler for method '%s' threw an exception: %s\n",
                       Traits::name, uri().c_str(), vexa::exception_text());
    return false;
  }
  if (loading.obj_ != nullptr) return true;
  VEXA_JSON_CONF_LOG(LM_ERROR, "Failed to create %s handler for method '%s': %m\n", Traits::name,
                     uri().c_str());
  return false;
}

template <typename Traits>
bool JSON_Conf_T<Traits>::init_object(object_type* obj) {
  try {
    errno = 0;
    if (vexa::can_split(params().c_str())) {
      ACE_ARGV words(params().c_str(), true);
      // Kept: only -1 is a failure.
      if (obj->init(words.argc(), words.argv()) != -1) return true;
    }
  } catch (...) {
    VEXA_JSON_CONF_LOG(LM_ERROR, "init of the %s handler for method '%s' threw an exception: %s\n",
                       Traits::name, uri().c_str(), vexa::exception_text());
    return false;
  }
  VEXA_JSON_CONF_LOG(LM_ERROR, "Failed to init %s handler for method '%s': %m\n", Traits::name,
                     uri().c_str());
  return false;
}

#undef VEXA_JSON_CONF_LOG
