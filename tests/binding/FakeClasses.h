// FakeClasses: the part of Node-API by which a module defines classes and objects, beside FakeNapi. It keeps what it
// is given for the test to look at; objects end when the test says so. One at a time.
#pragma once

#include <node_api.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/FakeNapi.h"

struct napi_callback_info__ {
  napi_value self = nullptr;
  napi_value target = nullptr;  // null: a plain call
  std::vector<napi_value> args;
  void* data = nullptr;
};

struct napi_ref__ {
  napi_value value = nullptr;
  uint32_t count = 0;
};

class FakeClasses {
 public:
  struct Property {
    std::string name;
    napi_callback method;
    napi_property_attributes attributes;
    void* data;
    bool others;  // one of the fields that a method does not use is set
  };
  struct Class {
    std::string name;
    size_t nameLength;
    napi_callback make;
    void* data;
    std::vector<Property> properties;
    napi_value value;
  };
  struct Finalizer {
    void* data;
    napi_finalize call;
    void* hint;
  };

  FakeClasses();
  ~FakeClasses();
  FakeClasses(const FakeClasses&) = delete;
  FakeClasses& operator=(const FakeClasses&) = delete;

  // Calls a native function as JavaScript would.
  napi_value Call(napi_callback function, napi_value self, std::vector<napi_value> args, void* data = nullptr);

  // An instance of the class that make belongs to.
  napi_value Construct(napi_callback make, std::vector<napi_value> args = {});

  // Runs the finalisers of an object as the collector would.
  void Collect(napi_value object);

  // The methods of an object by name; fails the test when there is none of that name.
  const Property& Method(napi_value object, const std::string& name);

  FakeNapi js;
  std::vector<Class> classes;
  std::vector<napi_ref> references;                                             // not deleted yet
  std::map<napi_value, std::vector<Property>> properties;                       // as napi_define_properties got them
  std::map<napi_value, std::vector<std::pair<std::string, napi_value>>> named;  // as napi_set_named_property did
  std::map<napi_value, Finalizer> wrapped;
  std::map<napi_value, std::vector<Finalizer>> finalizers;
  std::vector<std::pair<void (*)(void*), void*>> hooks;  // clean-up hooks of the environment
  size_t newInstanceArgs = 0;                            // how many arguments napi_new_instance got
  size_t wantedArgs = 0;                                 // how many the last napi_get_cb_info asked for
  bool wantedThis = false;                               // and whether it asked for `this`
  bool wantedData = false;                               // and for the data
  Finalizer instanceData{};
  std::function<void()> onDeleteReference;  // runs before a reference is deleted, when set

  static FakeClasses* current;
  static napi_module* record;  // as napi_module_register got it
};
