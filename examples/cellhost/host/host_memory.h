// Memory of the server: blocks from the library's memory front, and arrays that grow by
// reallocation. A failure is reported here; callers only pass on false. The status goes into the
// calling thread's context.
#ifndef CELLHOST_HOST_HOST_MEMORY_H
#define CELLHOST_HOST_HOST_MEMORY_H

#include <stdint.h>

#include <type_traits>

namespace cellhost {

// Resizes a block, or allocates one if *block is null. On failure the old block is unchanged.
//
//   source  names the caller to the library, such as "cellhost/cell_table"
bool ResizeBlock(void** block, uint64_t sizeBytes, const char* source);

// Frees a block; null is allowed.
void ReleaseBlock(void* block, const char* source);

// A growing array of plain values. Not locked.
template <class Value>
class HostArray {
  static_assert(std::is_trivially_copyable_v<Value>, "reallocation moves values as bytes");

 public:
  // source: see ResizeBlock; not copied.
  explicit HostArray(const char* source) : source_(source) {}
  HostArray(const HostArray&) = delete;
  HostArray& operator=(const HostArray&) = delete;
  ~HostArray() { ReleaseBlock(values_, source_); }

  // Makes room for at least `count` values. The values do not move until there are more of them.
  bool Reserve(uint32_t count) {
    if (count <= capacity_) return true;
    const uint64_t doubled = 2ull * capacity_;
    const uint64_t capacity = count > doubled ? count : doubled;
    void* block = values_;
    if (!ResizeBlock(&block, capacity * sizeof(Value), source_)) return false;
    values_ = static_cast<Value*>(block);
    capacity_ = static_cast<uint32_t>(capacity);
    return true;
  }

  bool Append(const Value& value) {
    if (count_ == capacity_ && !Reserve(count_ + kFirstCount)) return false;
    values_[count_++] = value;
    return true;
  }

  // Sets the count; new values are copies of `fill`.
  bool Resize(uint32_t count, const Value& fill) {
    if (!Reserve(count)) return false;
    for (uint32_t at = count_; at < count; ++at) values_[at] = fill;
    count_ = count;
    return true;
  }

  void Clear() { count_ = 0; }

  void Swap(HostArray& other) {
    Value* values = values_;
    const uint32_t count = count_;
    const uint32_t capacity = capacity_;
    values_ = other.values_;
    count_ = other.count_;
    capacity_ = other.capacity_;
    other.values_ = values;
    other.count_ = count;
    other.capacity_ = capacity;
  }

  Value& operator[](uint32_t at) { return values_[at]; }
  const Value& operator[](uint32_t at) const { return values_[at]; }
  const Value* data() const { return values_; }
  Value* data() { return values_; }
  uint32_t count() const { return count_; }
  uint64_t bytesHeld() const { return uint64_t{capacity_} * sizeof(Value); }

 private:
  static constexpr uint32_t kFirstCount = 16;

  const char* source_;
  Value* values_ = nullptr;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
};

}  // namespace cellhost

#endif
