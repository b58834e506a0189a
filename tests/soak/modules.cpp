// Modules: loaded, searched and unloaded by one thread at a time, as a host must do it.
#include <mutex>

#include "kivsdu/module.h"
#include "kivsdu/status.h"
#include "soak/check.h"
#include "soak/platform.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

class ModulesVisitor : public Visitor {
 public:
  explicit ModulesVisitor(std::mutex* mutex) : mutex_(*mutex) {}

  void Step() override {
    const std::unique_lock<std::mutex> guard(mutex_, std::try_to_lock);
    if (!guard.owns_lock()) return;
    KivHandle module = nullptr;
    void* entry = nullptr;
    Done(KivSdModuleLoad(nullptr, kSystemModule, &module, 0), "KivSdModuleLoad");
    Done(KivSdModuleProcAddrGet(nullptr, module, kSystemModuleEntry, &entry),
         "KivSdModuleProcAddrGet");
    Expect(entry != nullptr, "an entry point that is found has an address");
    Expect(
        KivSdModuleProcAddrGet(nullptr, module, "NoSuchEntry", &entry) == KIV_ST_MODULE_PROCEDURE,
        "a missing entry point is reported");
    char path[1029] = "";
    Done(KivSdModuleNameGet(nullptr, module, sizeof path, path), "KivSdModuleNameGet");
    Expect(path[0] != '\0', "a loaded module has a name");
    Done(KivSdModuleUnload(nullptr, module), "KivSdModuleUnload");
  }

 private:
  std::mutex& mutex_;
};

class Modules : public Subsystem {
 public:
  std::unique_ptr<Visitor> Enter(uint32_t /*place*/, Random* /*random*/) override {
    return std::make_unique<ModulesVisitor>(&mutex_);
  }

 private:
  std::mutex mutex_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeModules(const World& /*world*/) {
  return std::make_unique<Modules>();
}

}  // namespace kiv::soak
