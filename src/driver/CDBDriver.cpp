#include "driver/CDBDriver.h"

#include <node_api.h>

CDBDriver::CDBDriver(napi_env environment, const CString& driverName, uint16_t driverNumber, IDriverCore* owner)
    : env(environment), number(driverNumber), table(std::make_shared<TagTable>()), tags(table->tags), core(owner) {
  table->driverName = driverName;
}

CDBDriver::~CDBDriver() {
  // Release, not abort: what is queued is still delivered.
  napi_threadsafe_function func = notifyFunc.exchange(nullptr, std::memory_order_acq_rel);
  if (func != nullptr) napi_release_threadsafe_function(func, napi_tsfn_release);
  delete spare_;
}
