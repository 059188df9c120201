#include "storage/io_pages.h"

#include "core/globals.h"

namespace tarvik {

namespace {

constexpr UINTN PageBytes = 4096;

constexpr UINTN PagesFor(UINTN Size) { return (Size + PageBytes - 1) / PageBytes; }

}  // namespace

VOID* AllocateIoPages(const StorageDevice* Device, UINTN Size) {
  if (Size == 0) return nullptr;
  const UINTN Pages = PagesFor(Size);
  const UINT32 IoAlign =
      Device != nullptr && Device->PassThru != nullptr && Device->PassThru->Mode != nullptr
          ? Device->PassThru->Mode->IoAlign
          : 0;
  EFI_PHYSICAL_ADDRESS Base = 0;
  if (IoAlign <= PageBytes) {
    if (EFI_ERROR(gBS->AllocatePages(AllocateAnyPages, EfiBootServicesData, Pages, &Base))) return nullptr;
    return reinterpret_cast<VOID*>(static_cast<UINTN>(Base));
  }
  // Firmware alignments are powers of two; above a page they are whole pages,
  // so the pages around the aligned range can be given back.
  if (IoAlign % PageBytes != 0) return nullptr;
  const UINTN Extra = PagesFor(IoAlign);
  if (EFI_ERROR(gBS->AllocatePages(AllocateAnyPages, EfiBootServicesData, Pages + Extra, &Base))) return nullptr;
  const EFI_PHYSICAL_ADDRESS Aligned = (Base + IoAlign - 1) / IoAlign * IoAlign;
  const UINTN Before = static_cast<UINTN>((Aligned - Base) / PageBytes);
  const UINTN After = Extra - Before;
  if (Before > 0) gBS->FreePages(Base, Before);
  if (After > 0) gBS->FreePages(Aligned + Pages * PageBytes, After);
  return reinterpret_cast<VOID*>(static_cast<UINTN>(Aligned));
}

VOID FreeIoPages(VOID* Buffer, UINTN Size) {
  if (Buffer == nullptr || Size == 0) return;
  gBS->FreePages(reinterpret_cast<EFI_PHYSICAL_ADDRESS>(Buffer), PagesFor(Size));
}

}  // namespace tarvik
