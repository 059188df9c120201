#include "memtest/memory_rows.h"

#include "core/diag_common.h"
#include "core/pool.h"
#include "core/row_texts.h"
#include "memtest/advanced_integrity.h"
#include "memtest/memory_texts.h"

namespace tarvik {
namespace {

constexpr UINTN RunInfoBytes = 200;
constexpr UINTN RowBytes = 2048;

// An empty module text is shown as "-".
const CHAR16* OrDash(const CHAR16* Text) { return Text != nullptr && Text[0] != 0 ? Text : u"-"; }

// The serial numbers of the first four modules joined with "-".
VOID UniqueIdentifier(CHAR16* Text, UINTN Bytes) {
  Text[0] = 0;
  UINTN Used = 0;
  for (UINT64 M = 0; M < MemoryTest.Modules.Count && M < 4; ++M)
    Used += SPrint(Text + Used, Bytes - Used * sizeof(CHAR16), M == 0 ? u"%s" : u"-%s",
                   OrDash(MemoryTest.Modules.SerialNumber[M]));
}

}  // namespace

EFI_STATUS MemoryRunInfoRow(UINT64 Row, UINT64 DeviceIndex, CHAR16** Label, CHAR16** Value) {
  if (Label == nullptr || Value == nullptr) return EFI_ABORTED;
  if (DeviceIndex != 0 || Row >= MemoryRunInfoRows) return EFI_INVALID_PARAMETER;
  RowTexts Texts;
  EFI_STATUS Status = Texts.Allocate(RunInfoBytes);
  if (EFI_ERROR(Status)) return Status;
  const BOOLEAN Total = Row == 0;
  SPrint(Texts.Label(), RunInfoBytes, u"%s", MemoryText(Total ? memory_text::TotalMemory : memory_text::AvailableMemory));
  SPrint(Texts.Value(), RunInfoBytes, u"%,ld MB", (Total ? MemoryTest.TotalPages : MemoryTest.AvailablePages) / 256);
  return Texts.HandOut(Label, Value);
}

EFI_STATUS MemorySystemInfoRow(UINT64 Row, CHAR16** Label, CHAR16** Value) {
  if (Label == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= MemorySystemInfoRowCount()) return EFI_INVALID_PARAMETER;
  RowTexts Texts;
  EFI_STATUS Status = Texts.Allocate(RowBytes);
  if (EFI_ERROR(Status)) return Status;
  CHAR16* L = Texts.Label();
  CHAR16* V = Texts.Value();
  L[0] = 0;
  V[0] = 0;
  if (Row == 0) {
    SPrint(L, RowBytes, u"%s:", MemoryText(memory_text::TotalPhysicalMemory));
    SPrint(V, RowBytes, u"%d GB", static_cast<INT32>(TotalModuleGigabytes(MemoryTest.Modules)));
    return Texts.HandOut(Label, Value);
  }
  const UINT64 M = (Row - 1) / 7;
  const MemoryModules& Modules = MemoryTest.Modules;
  switch ((Row - 1) % 7) {
    case 0:  // a blank line before each module
      break;
    case 1:
      SPrint(L, RowBytes, u"%s %d - %s (%d MHz)", MemoryText(memory_text::MemoryDevice), static_cast<INT32>(M + 1),
             MemoryTypeName(Modules.Type[M]), static_cast<INT32>(Modules.SpeedMhz[M]));
      break;
    case 2:
      SPrint(L, RowBytes, u"%s:", MemoryText(memory_text::Origin));
      SPrint(V, RowBytes, u"SMBIOS");
      break;
    case 3:
      SPrint(L, RowBytes, u"%s:", MemoryText(memory_text::MemorySize));
      SPrint(V, RowBytes, u"%d GB", static_cast<INT32>(ModuleGigabytes(MemoryTest.Modules, M)));
      break;
    case 4:
      SPrint(L, RowBytes, u"%s:", MemoryText(memory_text::Manufacturer));
      SPrint(V, RowBytes, u"%s", OrDash(Modules.Manufacturer[M]));
      break;
    case 5:
      SPrint(L, RowBytes, u"%s:", MemoryText(memory_text::PartNumber));
      SPrint(V, RowBytes, u"%s", OrDash(Modules.PartNumber[M]));
      break;
    default:
      SPrint(L, RowBytes, u"%s:", MemoryText(memory_text::SerialNumber));
      SPrint(V, RowBytes, u"%s", OrDash(Modules.SerialNumber[M]));
      break;
  }
  return Texts.HandOut(Label, Value);
}

EFI_STATUS MemoryLogRow(UINT64 Row, CHAR16** Key, CHAR16** Value) {
  if (Key == nullptr || Value == nullptr) return EFI_ABORTED;
  if (Row >= MemoryLogRowCount()) return EFI_INVALID_PARAMETER;
  RowTexts Texts;
  EFI_STATUS Status = Texts.Allocate(RowBytes);
  if (EFI_ERROR(Status)) return Status;
  CHAR16* K = Texts.Label();
  CHAR16* V = Texts.Value();
  switch (Row) {
    case 0:
      SPrint(K, RowBytes, u"%s:", u"UID");
      UniqueIdentifier(V, RowBytes);
      return Texts.HandOut(Key, Value);
    case 1:
      SPrint(K, RowBytes, u"%s:", u"DISPLAYNAME");
      SPrint(V, RowBytes, u"MAIN_MEMORY");
      return Texts.HandOut(Key, Value);
    case 2:
      SPrint(K, RowBytes, u"%s:", u"PHYSICAL_MEMORY");
      SPrint(V, RowBytes, u"%d GB", static_cast<INT32>(TotalModuleGigabytes(MemoryTest.Modules)));
      return Texts.HandOut(Key, Value);
    default:
      break;
  }
  const UINT64 M = (Row - 3) / 8;
  const MemoryModules& Modules = MemoryTest.Modules;
  switch ((Row - 3) % 8) {
    case 0:
      SPrint(K, RowBytes, u">>> %s %s", u"RESOURCE", u"BANK");
      SPrint(V, RowBytes, u" ");
      break;
    case 1:
      SPrint(K, RowBytes, u"%s:", u"INDEX");
      SPrint(V, RowBytes, u"%d", static_cast<INT32>(M));
      break;
    case 2:
      SPrint(K, RowBytes, u"%s:", u"MANUFACTURER");
      SPrint(V, RowBytes, u"%s", OrDash(Modules.Manufacturer[M]));
      break;
    case 3:
      SPrint(K, RowBytes, u"%s:", u"SPEED");
      SPrint(V, RowBytes, u"%d", static_cast<INT32>(Modules.SpeedMhz[M]));
      break;
    case 4:
      SPrint(K, RowBytes, u"%s:", u"SIZE");
      SPrint(V, RowBytes, u"%d GB", static_cast<INT32>(ModuleGigabytes(MemoryTest.Modules, M)));
      break;
    case 5:
      SPrint(K, RowBytes, u"%s:", u"PART_NUMBER");
      SPrint(V, RowBytes, u"%s", OrDash(Modules.PartNumber[M]));
      break;
    case 6:
      SPrint(K, RowBytes, u"%s:", u"SERIAL_NUMBER");
      SPrint(V, RowBytes, u"%s", OrDash(Modules.SerialNumber[M]));
      break;
    default:
      SPrint(K, RowBytes, u"<<< %s", u"RESOURCE");
      SPrint(V, RowBytes, u" ");
      break;
  }
  return Texts.HandOut(Key, Value);
}

EFI_STATUS MemorySummaryLine(UINT64 Index, CHAR16** Text) {
  if (Text == nullptr) return EFI_ABORTED;
  if (Index != 0) return EFI_INVALID_PARAMETER;
  PoolPtr<CHAR16> Line;
  EFI_STATUS Status = Line.Allocate(RowBytes);
  if (EFI_ERROR(Status)) return Status;
  SPrint(Line.get(), RowBytes, u"%s %s: %,ld MB", u"MESSAGE", u"TESTED_SIZE", MemoryTest.AvailablePages / 256);
  *Text = Line.release();
  return EFI_SUCCESS;
}

}  // namespace tarvik
