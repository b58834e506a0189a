// Windows lists pipes by name. It does not say which library made a pipe, and a pipe's processes
// are known only to those who open it.
#include "ls/listing.h"

#include <windows.h>

#include <algorithm>

namespace kivsd {
namespace {

constexpr char kAllPipes[] = "\\\\.\\pipe\\*";
constexpr char kPipeNote[] =
    "These are the pipes of all programs: Windows does not tell which library made a pipe, or who "
    "has it open. ";
constexpr char kNote[] =
    "Windows does not list semaphores, mutexes and shared blocks to a program. A tool that shows "
    "the handles of a process does.";

}  // namespace

Listing ListObjects() {
  Listing listing = {{}, std::string(kPipeNote) + kNote};
  WIN32_FIND_DATAA found = {};
  const HANDLE search = FindFirstFileA(kAllPipes, &found);
  if (search == INVALID_HANDLE_VALUE) {
    listing.note = "The list of pipes cannot be read, OS error " + std::to_string(GetLastError()) +
                   ". " + kNote;
    return listing;
  }
  do {
    listing.objects.push_back({ObjectKind::kPipe, found.cFileName});
  } while (FindNextFileA(search, &found) != 0);
  FindClose(search);
  std::ranges::sort(listing.objects, {}, &ListedObject::name);
  return listing;
}

}  // namespace kivsd
