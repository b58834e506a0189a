// The texts lie behind a key: they are too long for thread-local variables, of which the loader has
// few bytes for a library that is loaded late.
#include "os/lnx/module_failure.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

namespace kiv::os {
namespace {

constexpr size_t kTextBytes = 1029;

struct Failure {
  uint32_t error;
  char text[kTextBytes];
};

pthread_once_t keyMade = PTHREAD_ONCE_INIT;
pthread_key_t key;
bool hasKey = false;

// The C library frees a thread's record when the thread ends, even after this library is unloaded.
void MakeKey() { hasKey = pthread_key_create(&key, std::free) == 0; }

[[gnu::destructor]] void DeleteKey() {
  if (hasKey) pthread_key_delete(key);
}

// Null if the thread has none.
Failure* OwnFailure() {
  pthread_once(&keyMade, MakeKey);
  return hasKey ? static_cast<Failure*>(pthread_getspecific(key)) : nullptr;
}

Failure* OwnOrNewFailure() {
  Failure* own = OwnFailure();
  if (own != nullptr || !hasKey) return own;
  auto* made = static_cast<Failure*>(std::malloc(sizeof(Failure)));
  if (made == nullptr || pthread_setspecific(key, made) == 0) return made;
  std::free(made);
  return nullptr;
}

}  // namespace

void KeepFailure(uint32_t error, const char* text) {
  Failure* own = OwnOrNewFailure();
  if (own == nullptr) return;
  own->error = error;
  std::snprintf(own->text, kTextBytes, "%s", text);
}

void ForgetFailure() {
  Failure* own = OwnFailure();
  if (own != nullptr) own->text[0] = '\0';
}

const char* KeptText(uint32_t error) {
  const Failure* own = OwnFailure();
  return own != nullptr && own->error == error && own->text[0] != '\0' ? own->text : nullptr;
}

}  // namespace kiv::os
