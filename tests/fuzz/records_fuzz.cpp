// Reads arbitrary bytes as what the example server finds in its files after a crash: the blocks of
// its cells and the records of its journal.
#include <cstring>

#include "fuzz/input.h"
#include "storage/cell_page.h"
#include "storage/journal_record.h"

namespace {

using cellhost::CellPage;
using cellhost::JournalRecord;
using cellhost::JournalScan;
using kiv::fuzz::Check;
using kiv::fuzz::Input;

// A sound block holds no more cells than fit. Sealed anew, it is sound; with a bit changed, it is not.
void CheckPage(Input* input) {
  const uint32_t number = input->Byte();
  CellPage page;
  cellhost::ClearPage(&page);
  input->Fill(reinterpret_cast<unsigned char*>(&page), sizeof page);
  cellhost::PageFileHead head;
  if (cellhost::IsSound(page, page.number)) {
    Check(page.cellCount <= cellhost::kCellsInPage, "cells of a sound block");
  }
  static_cast<void>(cellhost::ReadHead(page, &head));
  const uint32_t cells = page.cellCount % (cellhost::kCellsInPage + 1);
  cellhost::SealPage(&page, number, cells);
  Check(cellhost::IsSound(page, number), "a sealed block is sound");
  Check(!cellhost::IsSound(page, number + 1), "a block has one number");
  auto* bytes = reinterpret_cast<unsigned char*>(&page);
  bytes[(number * 251u + cells * 16u) % sizeof page] ^=
      static_cast<unsigned char>(1u << number % 8);
  Check(!cellhost::IsSound(page, number), "a changed block is not sound");
}

// Half of the records are made sound, so that their order is looked at.
JournalRecord NextRecord(Input* input) {
  JournalRecord record = {};
  const uint8_t what = input->Byte();
  if (what % 2 == 0) {
    const uint64_t number = input->Byte() % 16;
    return cellhost::MakeRecord(number, {input->Word(), 1.0});
  }
  input->Fill(reinterpret_cast<unsigned char*>(&record), sizeof record);
  return record;
}

// The PUTs that are carried out follow the included ones without a gap.
void CheckJournal(Input* input) {
  uint64_t expected = input->Byte() % 16;
  JournalScan scan(expected);
  for (int i = 0; i < 64 && !input->IsAtEnd(); ++i) {
    const JournalRecord record = NextRecord(input);
    const JournalScan::Step step = scan.Next(record);
    Check((step == JournalScan::Step::kDamaged) != cellhost::IsSound(record), "damaged records");
    if (step == JournalScan::Step::kDamaged || step == JournalScan::Step::kGap) break;
    if (step == JournalScan::Step::kCarryOut) {
      Check(record.number == ++expected, "the order of PUTs");
    } else {
      Check(record.number <= expected, "a PUT that the cells include");
    }
    Check(scan.lastPut() == expected, "the last PUT");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  Input input(bytes, count);
  if (input.Byte() % 2 == 0) {
    CheckPage(&input);
  } else {
    CheckJournal(&input);
  }
  return 0;
}
