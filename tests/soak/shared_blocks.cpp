// Named blocks of memory: two views of one block show the same bytes.
#include <cstring>
#include <string>

#include "kivsdu/sharedmem.h"
#include "kivsdu/status.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kMostBytes = 40'000;

struct View {
  KivHandle mapping = nullptr;
  void* address = nullptr;

  void Open(const std::string& name, uint32_t sizeBytes, uint32_t flags) {
    uint32_t id = 0;
    Done(KivSdSharedMemAlloc(nullptr, name.c_str(), sizeBytes, flags,
                             KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping, &id, &address),
         "KivSdSharedMemAlloc");
    Expect(address != nullptr, "an opened block has a view");
  }
  void Close() const { Done(KivSdSharedMemFree(nullptr, mapping, address), "KivSdSharedMemFree"); }
};

class SharedBlocksVisitor : public Visitor {
 public:
  SharedBlocksVisitor(const World& world, uint32_t place, Random* random)
      : name_(NameOf(world, place, "block")), random_(*random) {}

  void Step() override {
    const uint32_t size = random_.Between(1, kMostBytes);
    View made;
    View opened;
    made.Open(name_, size, KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE);
    Expect(static_cast<char*>(made.address)[size - 1] == 0, "a new block is zeroed");
    Fill(made.address, size, size);
    opened.Open(name_, 0, KIV_SHAREDMEM_READ);
    Expect(std::memcmp(made.address, opened.address, size) == 0,
           "the views of a block show the same bytes");
    made.Close();
    Expect(IsFilled(opened.address, size, size), "a block lasts until its last handle is closed");
    opened.Close();
  }

 private:
  const std::string name_;
  Random& random_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeSharedBlocks(const World& world) {
  return std::make_unique<Separate<SharedBlocksVisitor>>(world);
}

}  // namespace kiv::soak
