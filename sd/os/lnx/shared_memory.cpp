// Blocks are named objects (names.h). A view is a mapping of its own: it stays when the block's last
// handle is closed.
#include "os/shared_memory.h"

#include <pthread.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>

#include "os/lnx/names.h"

namespace kiv::os {

const uint32_t kErrorNameExists = EEXIST;

namespace {

constexpr uint32_t kAccessMask = kViewWrite | kViewRead;

// In a slot of kind kBlock.
struct BlockContent {
  ObjectWord word;
  NamedObject* object;
  uint32_t access;  // that its views may have
};

struct View {
  void* address;
  uint64_t sizeBytes;
  View* next;
};

// Guards the list.
pthread_mutex_t viewsMutex = PTHREAD_MUTEX_INITIALIZER;
View* firstView = nullptr;

void Add(View* view) {
  pthread_mutex_lock(&viewsMutex);
  view->next = firstView;
  firstView = view;
  pthread_mutex_unlock(&viewsMutex);
}

// Takes the view that begins at the address from the list.
View* Remove(const void* address) {
  pthread_mutex_lock(&viewsMutex);
  View** place = &firstView;
  while (*place != nullptr && (*place)->address != address) place = &(*place)->next;
  View* found = *place;
  if (found != nullptr) *place = found->next;
  pthread_mutex_unlock(&viewsMutex);
  return found;
}

ValueResult<void*> HandleOfBlock(const ValueResult<NamedObject*>& object, uint32_t access) {
  if (!object.ok) return {false, object.error, nullptr};
  Slot* slot = TakeSlot();
  if (slot == nullptr) {
    ReleaseNamed(object.value);
    return {false, ENOMEM, nullptr};
  }
  auto* block = ContentOf<BlockContent>(slot);
  block->object = object.value;
  block->access = access;
  StartWord(&block->word, slot, 0);
  return {true, 0, PublishSlot(slot, Kind::kBlock)};
}

void End(Slot* slot) {
  ReleaseNamed(ContentOf<BlockContent>(slot)->object);
  FreeSlot(slot);
}

// Write access includes read access.
int PagesOf(uint32_t access) {
  if ((access & kViewWrite) != 0) return PROT_READ | PROT_WRITE;
  return (access & kViewRead) != 0 ? PROT_READ : PROT_NONE;
}

bool IsAllowed(const BlockContent& block, uint32_t access) {
  const bool writes = (access & kViewWrite) != 0;
  const bool reads = (access & kViewRead) != 0 && !writes;
  if (writes && block.object->protection == kPagesReadOnly) return false;
  return (!writes || (block.access & kViewWrite) != 0) && (!reads || block.access != 0);
}

ValueResult<void*> Map(const BlockContent& block, uint32_t access, uint64_t sizeBytes) {
  if ((access & ~kAccessMask) != 0) return {false, EINVAL, nullptr};
  const uint64_t whole = block.object->blockBytes;
  if (!IsAllowed(block, access) || sizeBytes > whole) return {false, EACCES, nullptr};
  auto* view = static_cast<View*>(std::malloc(sizeof(View)));
  if (view == nullptr) return {false, ENOMEM, nullptr};
  view->sizeBytes = sizeBytes == 0 ? whole : sizeBytes;
  view->address =
      mmap(nullptr, view->sizeBytes, PagesOf(access), MAP_SHARED, block.object->file, kBlockOffset);
  if (view->address == MAP_FAILED) {
    const auto error = static_cast<uint32_t>(errno);
    std::free(view);
    return {false, error, nullptr};
  }
  Add(view);
  return {true, 0, view->address};
}

}  // namespace

ValueResult<void*> MakeBlock(const char* name, uint32_t sizeBytes, uint32_t protection) {
  // Reserved pages get their memory at once, like committed ones.
  const uint32_t pages = protection & ~(kPagesCommit | kPagesReserve);
  const bool isKnown = pages == kPagesReadOnly || pages == kPagesReadWrite;
  if (!isKnown || sizeBytes == 0) return {false, EINVAL, nullptr};
  return HandleOfBlock(MakeNamed(name, {NamedKind::kBlock, 0, 0, sizeBytes, pages}), kAccessMask);
}

ValueResult<void*> OpenBlock(const char* name, uint32_t access) {
  if ((access & ~kAccessMask) != 0) return {false, EINVAL, nullptr};
  return HandleOfBlock(OpenNamed(name, NamedKind::kBlock), access);
}

Result CloseBlock(void* block) {
  const Closing closing = CloseHandle(block, Kind::kBlock);
  if (closing.ended != nullptr) End(closing.ended);
  return closing.result;
}

ValueResult<void*> MapBlock(void* block, uint32_t access, uint32_t sizeBytes) {
  Slot* slot = FindSlot(block, Kind::kBlock);
  if (slot == nullptr) return {false, EBADF, nullptr};
  auto* content = ContentOf<BlockContent>(slot);
  if (!EnterObject(&content->word, IdentityOf(block))) return {false, EBADF, nullptr};
  const ValueResult<void*> mapped = Map(*content, access, sizeBytes);
  if (LeaveObject(&content->word)) End(slot);
  return mapped;
}

Result UnmapBlock(void* view) {
  View* found = Remove(view);
  if (found == nullptr) return {false, EINVAL};
  munmap(found->address, found->sizeBytes);
  std::free(found);
  return {true, 0};
}

}  // namespace kiv::os
