#include "binding/FakeClasses.h"

#include <gtest/gtest.h>

#include <algorithm>

struct napi_env__ {  // as FakeNapi has it
  FakeNapi* js;
};

FakeClasses* FakeClasses::current = nullptr;
napi_module* FakeClasses::record = nullptr;

FakeClasses::FakeClasses() { current = this; }

FakeClasses::~FakeClasses() {
  while (!wrapped.empty()) Collect(wrapped.begin()->first);
  while (!finalizers.empty()) Collect(finalizers.begin()->first);
  EXPECT_TRUE(hooks.empty()) << "a clean-up hook was left";
  if (instanceData.call != nullptr) instanceData.call(js.Env(), instanceData.data, instanceData.hint);
  EXPECT_TRUE(references.empty()) << "a reference was left";
  current = nullptr;
}

napi_value FakeClasses::Call(napi_callback function, napi_value self, std::vector<napi_value> args, void* data) {
  napi_callback_info__ info{self, nullptr, std::move(args), data};
  js.log.clear();
  return function(js.Env(), &info);
}

napi_value FakeClasses::Construct(napi_callback make, std::vector<napi_value> args) {
  napi_callback_info__ info{js.Object(), js.Object(), std::move(args), nullptr};
  return make(js.Env(), &info);
}

void FakeClasses::Collect(napi_value object) {
  if (const auto own = wrapped.extract(object); !own.empty()) {
    const Finalizer& finalizer = own.mapped();
    finalizer.call(js.Env(), finalizer.data, finalizer.hint);
  }
  if (const auto added = finalizers.extract(object); !added.empty()) {
    for (const Finalizer& finalizer : added.mapped()) finalizer.call(js.Env(), finalizer.data, finalizer.hint);
  }
}

const FakeClasses::Property& FakeClasses::Method(napi_value object, const std::string& name) {
  static const Property none{};
  for (const Property& property : properties[object]) {
    if (property.name == name) return property;
  }
  ADD_FAILURE() << "no method " << name;
  return none;
}

// --- the stubs

#define ENTER(name)                             \
  FakeNapi& js = *env->js;                      \
  FakeClasses& classes = *FakeClasses::current; \
  static_cast<void>(classes);                   \
  if (const napi_status entered = js.Enter(#name); entered != napi_ok) return entered

namespace {

std::vector<FakeClasses::Property> Copy(size_t count, const napi_property_descriptor* properties) {
  std::vector<FakeClasses::Property> copies;
  for (size_t i = 0; i < count; ++i) {
    const napi_property_descriptor& one = properties[i];
    const bool others = one.name != nullptr || one.getter != nullptr || one.setter != nullptr || one.value != nullptr;
    copies.push_back({one.utf8name, one.method, one.attributes, one.data, others});
  }
  return copies;
}

napi_ref NewReference(FakeClasses& classes, napi_value value, uint32_t count) {
  classes.references.push_back(new napi_ref__{value, count});
  return classes.references.back();
}

}  // namespace

void napi_module_register(napi_module* module) { FakeClasses::record = module; }

napi_status napi_define_class(napi_env env, const char* name, size_t length, napi_callback make, void* data,
                              size_t count, const napi_property_descriptor* properties, napi_value* result) {
  ENTER(napi_define_class);
  *result = js.Object();
  classes.classes.push_back({name, length, make, data, Copy(count, properties), *result});
  return napi_ok;
}

napi_status napi_define_properties(napi_env env, napi_value object, size_t count,
                                   const napi_property_descriptor* properties) {
  ENTER(napi_define_properties);
  for (auto& property : Copy(count, properties)) classes.properties[object].push_back(property);
  return napi_ok;
}

napi_status napi_create_object(napi_env env, napi_value* result) {
  ENTER(napi_create_object);
  *result = js.Object();
  return napi_ok;
}

napi_status napi_set_named_property(napi_env env, napi_value object, const char* name, napi_value value) {
  ENTER(napi_set_named_property);
  classes.named[object].emplace_back(name, value);
  return napi_ok;
}

napi_status napi_get_named_property(napi_env env, napi_value, const char*, napi_value* result) {
  ENTER(napi_get_named_property);
  *result = js.Object();
  return napi_ok;
}

napi_status napi_add_finalizer(napi_env env, napi_value object, void* data, napi_finalize finalizer, void* hint,
                               napi_ref*) {
  ENTER(napi_add_finalizer);
  classes.finalizers[object].push_back({data, finalizer, hint});
  return napi_ok;
}

napi_status napi_create_reference(napi_env env, napi_value value, uint32_t count, napi_ref* result) {
  ENTER(napi_create_reference);
  *result = NewReference(classes, value, count);
  return napi_ok;
}

napi_status napi_delete_reference(napi_env env, napi_ref reference) {
  ENTER(napi_delete_reference);
  if (classes.onDeleteReference) classes.onDeleteReference();
  const auto at = std::find(classes.references.begin(), classes.references.end(), reference);
  if (at == classes.references.end()) return js.Done(napi_invalid_arg, "Invalid argument");
  classes.references.erase(at);
  delete reference;
  return napi_ok;
}

napi_status napi_get_reference_value(napi_env env, napi_ref reference, napi_value* result) {
  ENTER(napi_get_reference_value);
  if (reference == nullptr) return js.Done(napi_invalid_arg, "Invalid argument");
  *result = reference->value;
  return napi_ok;
}

napi_status napi_set_instance_data(napi_env env, void* data, napi_finalize finalizer, void* hint) {
  ENTER(napi_set_instance_data);
  classes.instanceData = {data, finalizer, hint};
  return napi_ok;
}

napi_status napi_get_instance_data(napi_env env, void** data) {
  ENTER(napi_get_instance_data);
  *data = classes.instanceData.data;
  return napi_ok;
}

napi_status napi_get_new_target(napi_env env, napi_callback_info info, napi_value* result) {
  ENTER(napi_get_new_target);
  *result = info->target;
  return napi_ok;
}

napi_status napi_get_cb_info(napi_env env, napi_callback_info info, size_t* count, napi_value* args, napi_value* self,
                             void** data) {
  ENTER(napi_get_cb_info);
  classes.wantedArgs = count != nullptr ? *count : 0;
  classes.wantedThis = self != nullptr;
  classes.wantedData = data != nullptr;
  for (size_t i = 0; i < classes.wantedArgs; ++i) args[i] = i < info->args.size() ? info->args[i] : js.Undefined();
  if (count != nullptr) *count = info->args.size();
  if (self != nullptr) *self = info->self;
  if (data != nullptr) *data = info->data;
  return napi_ok;
}

napi_status napi_new_instance(napi_env env, napi_value type, size_t count, const napi_value*, napi_value* result) {
  ENTER(napi_new_instance);
  classes.newInstanceArgs = count;
  for (const FakeClasses::Class& candidate : classes.classes) {
    if (candidate.value == type) *result = classes.Construct(candidate.make);
  }
  return napi_ok;
}

napi_status napi_wrap(napi_env env, napi_value object, void* data, napi_finalize finalizer, void* hint,
                      napi_ref* result) {
  ENTER(napi_wrap);
  classes.wrapped[object] = {data, finalizer, hint};
  if (result != nullptr) *result = NewReference(classes, object, 0);
  return napi_ok;
}

napi_status napi_unwrap(napi_env env, napi_value object, void** result) {
  ENTER(napi_unwrap);
  const auto found = classes.wrapped.find(object);
  if (found == classes.wrapped.end()) return js.Done(napi_invalid_arg, "Invalid argument");
  *result = found->second.data;
  return napi_ok;
}

napi_status napi_add_env_cleanup_hook(napi_env env, void (*hook)(void*), void* argument) {
  ENTER(napi_add_env_cleanup_hook);
  classes.hooks.emplace_back(hook, argument);
  return napi_ok;
}

napi_status napi_remove_env_cleanup_hook(napi_env env, void (*hook)(void*), void* argument) {
  ENTER(napi_remove_env_cleanup_hook);
  std::erase(classes.hooks, std::make_pair(hook, argument));
  return napi_ok;
}
