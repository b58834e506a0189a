// Texts on a memory stack; see text_stack.h.
#include "host/text_stack.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/memory.h"

namespace cellhost {
namespace {

constexpr uint32_t kByteAlignment = 1;        // texts need no alignment
constexpr uint32_t kBlockBytes = 32 * 1024;   // holds a few thousand names
constexpr uint64_t kTextBytesMax = 1u << 20;  // a longer name is an error in the file

}  // namespace

TextStack::~TextStack() {
  if (stack_ == nullptr) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdMemStackDelete(ctx, stack_), "delete a stack of names");
}

bool TextStack::EnsureStack() {
  if (stack_ != nullptr) return true;
  KivSdContext* ctx = ThisContext();
  KivSdMemStack* made = nullptr;
  const uint32_t status = KivSdMemStackCreate(ctx, &made, kByteAlignment, kBlockBytes);
  if (Succeeded(ctx, status, "create a stack of names")) {
    stack_ = made;
    return true;
  }
  // A failed creation may return an incomplete stack, which the caller must delete.
  if (made != nullptr) Succeeded(ctx, KivSdMemStackDelete(ctx, made), "delete a stack of names");
  return false;
}

bool TextStack::Push(std::string_view text, std::string_view* kept) {
  char* room = nullptr;
  if (!MakeRoom(text.size(), &room)) return false;
  KivSdMemCopy(ThisContext(), room, text.data(), static_cast<uint32_t>(text.size()));
  *kept = {room, text.size()};
  return true;
}

bool TextStack::MakeRoom(uint64_t lengthBytes, char** room) {
  if (lengthBytes > kTextBytesMax) return Complain("a name is longer than 1 MiB; shorten it");
  if (!EnsureStack()) return false;
  KivSdContext* ctx = ThisContext();
  void* place = nullptr;
  const uint32_t status =
      KivSdMemStackAllocAndPush(ctx, stack_, static_cast<uint32_t>(lengthBytes), &place);
  if (!Succeeded(ctx, status, "keep a name")) return false;
  bytesPushed_ += lengthBytes;
  *room = static_cast<char*>(place);
  return true;
}

}  // namespace cellhost
