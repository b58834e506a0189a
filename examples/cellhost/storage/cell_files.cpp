// Cells in files; see cell_files.h.
#include "storage/cell_files.h"

#include <algorithm>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/path.h"
#include "kivsdu/status.h"
#include "storage/page_file.h"
#include "storage/rename_file.h"

namespace cellhost {
namespace {

constexpr char kNewPages[] = "cells.new";

// Holds the lock of PUTs for its scope.
class Turn {
 public:
  explicit Turn(KivSdCritSec* section) : section_(section) {
    KivSdCritSecEnter(ThisContext(), section_);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  ~Turn() { KivSdCritSecExit(ThisContext(), section_); }

 private:
  KivSdCritSec* section_;
};

bool DoesNotFit(const std::string& path) {
  return Complain(
      "'%s' does not hold the cells that its first block states; restore the folder "
      "from a backup",
      path.c_str());
}

// Writes the blocks of a cube's cells, in the order of the cell table.
bool WriteCellPages(const Cube& cube, const CellIndex& numbers, uint32_t pages,
                    PageWriter* writer) {
  const CellTable& cells = cube.cells();
  uint32_t cell = 0;
  for (uint32_t number = 1; number < pages; ++number) {
    CellPage* page = writer->Room();
    if (page == nullptr) return false;
    ClearPage(page);
    const uint32_t count = std::min(cells.count() - cell, kCellsInPage);
    for (uint32_t at = 0; at < count; ++at, ++cell) {
      page->cells[at] = {.place = numbers.NumberOf(cells.coordinates(cell)),
                         .value = cells.value(cell)};
    }
    SealPage(page, number, count);
    if (!writer->Write()) return false;
  }
  return true;
}

}  // namespace

CellFiles::~CellFiles() {
  if (hasTurns_) KivSdCritSecDelete(ThisContext(), &putting_);
}

bool CellFiles::MakeFolder() {
  KivSdContext* ctx = ThisContext();
  const uint32_t made = KivSdDirCreateEx(ctx, folder_.c_str());
  if (made == 0) return KeepName(folder_);
  return Complain("could not make the folder '%s': %s; give another with --data", folder_.c_str(),
                  ReasonOf(ctx, made).text);
}

// The journal and the mark are made after cells.pag. A journal or a mark without cells.pag
// therefore shows that the cells were lost; the facts' cells must not replace them.
bool CellFiles::FindCells() {
  bool hasJournal = false;
  if (!Exists(pages_, &hasCells_) || !Exists(journalPath_, &hasJournal)) return false;
  const bool isMissing = mark_.IsEmpty() ? hasJournal && !hasCells_ : !hasCells_ || !hasJournal;
  if (isMissing) {
    return Complain("'%s' has no %s any more; restore the folder from a backup", folder_.c_str(),
                    hasCells_ ? kJournalFile : kPagesFile);
  }
  return !hasCells_ || journal_.Open(journalPath_);
}

bool CellFiles::Open(const std::string& folder) {
  folder_ = folder;
  pages_ = InFolder(folder, kPagesFile);
  newPages_ = InFolder(folder, kNewPages);
  journalPath_ = InFolder(folder, kJournalFile);
  KivSdContext* ctx = ThisContext();
  hasTurns_ = Succeeded(ctx, KivSdCritSecInit(ctx, &putting_), "make the lock of PUTs");
  return hasTurns_ && pause_.Create() && MakeFolder() && mark_.Open(InFolder(folder, kMarkFile)) &&
         FindCells();
}

bool CellFiles::Load(Cube* cube) {
  cube_ = FingerprintOf(*cube);
  if (!numbers_.Set(*cube)) return false;
  if (hasCells_ ? !ReadCells(cube) : !BeginAnew(*cube)) return false;
  if (!journal_.Replay(puts_, mark_.lastPut(), &replayed_,
                       [&](const StoredCell& cell) { return Take(cell, cube); })) {
    return false;
  }
  // The mark states that the other two exist: their names come first.
  return mark_.IsWhole() || (KeepName(journalPath_) && mark_.Set(journal_.lastPut()));
}

bool CellFiles::BeginAnew(const Cube& cube) {
  return WriteCells(cube) && journal_.Open(journalPath_);
}

bool CellFiles::Take(const StoredCell& cell, Cube* cube) const {
  CellPlace place;
  if (!numbers_.PlaceOf(cell.place, &place)) {
    return Complain("'%s' has cells without members in the facts; restore it from a backup",
                    folder_.c_str());
  }
  return cube->SetCell(place, cell.value);
}

bool CellFiles::ReadCells(Cube* cube) {
  PageReader reader;
  PageFileHead head;
  if (!reader.Open(pages_.c_str())) return false;
  if (reader.pageCount() == 0) return DoesNotFit(pages_);
  const CellPage* first = reader.Next();
  if (first == nullptr) return false;
  if (!ReadHead(*first, &head) || head.pages != reader.pageCount()) return DoesNotFit(pages_);
  if (head.cube != cube_) {
    return Complain(
        "'%s' has the cells of other facts; give those with --facts, or another folder "
        "with --data",
        pages_.c_str());
  }
  for (uint32_t number = 1; number < head.pages; ++number) {
    const CellPage* page = reader.Next();
    if (page == nullptr) return false;
    for (uint32_t at = 0; at < page->cellCount; ++at) {
      if (!Take(page->cells[at], cube)) return false;
    }
  }
  puts_ = head.puts;
  pageCount_ = head.pages;
  return cube->cells().count() == head.cells || DoesNotFit(pages_);
}

// Replaces cells.pag; the old file stays until the new one is on the device.
bool CellFiles::WriteCells(const Cube& cube) {
  const uint32_t cells = cube.cells().count();
  const uint32_t pages = PagesFor(cells);
  const uint64_t puts = journal_.lastPut();
  PageWriter writer;
  if (!writer.Make(newPages_.c_str(), pages)) return false;
  CellPage* first = writer.Room();
  if (first == nullptr) return false;
  MakeHead({.kind = kPageFileKind, .cube = cube_, .puts = puts, .cells = cells, .pages = pages},
           first);
  if (!writer.Write() || !WriteCellPages(cube, numbers_, pages, &writer) || !writer.Finish() ||
      !PutInPlace(newPages_.c_str(), pages_.c_str())) {
    return false;
  }
  puts_ = puts;
  pageCount_ = pages;
  hasCells_ = true;
  return true;
}

bool CellFiles::AwaitPauseEnd() {
  WriteLease lease(&pause_);
  return lease.Take();
}

// Waits for the end of a pause, because another program may be copying the files.
bool CellFiles::WriteBack(const Cube& cube) {
  if (journal_.lastPut() == puts_) return true;
  backup_.Close();
  WriteLease lease(&pause_);
  return lease.Take() && WriteCells(cube) && journal_.StartAnew();
}

bool CellFiles::Put(CellCache* cells, const PutOrder& order, Fault* fault) {
  const Turn turn(&putting_);
  CellPlace place;
  if (!cells->MakeRoomFor(order, &place, fault)) return false;
  const StoredCell cell = {.place = numbers_.NumberOf(place.coordinates), .value = order.value};
  // Keep the lease until record and cell agree: a copy made during a pause then has all of a PUT or
  // nothing of it.
  WriteLease lease(&pause_);
  if (!lease.Take()) return NotWritten(fault);
  if (!journal_.Append(cell, fault)) return false;
  if (cells->Set(place, order.value)) return true;
  journal_.TakeBack();
  return NoMemory(fault, "nothing stored: no memory for the cell");
}

}  // namespace cellhost
