// Language detection on any SMBIOS table: the text resources read the BIOS
// Language structure's current language at installation. Whatever the
// table holds, the language is one of the eight the string tables have, and
// the string tables are still handed out whole. The input may make one
// pool allocation of the installation or of the tables fail.
#include <cstdio>
#include <cstdlib>

#include "text/language_protocol.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

constexpr UINT64 kLanguages = 8;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "language: %s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_support::FuzzInput in(data, size);
  const uint8_t fail_allocation = in.take<uint8_t>();
  fuzz_support::SmbiosFirmware firmware(fuzz_support::TakeSmbiosInput(in));
  fuzz_support::LeakCheck leaks("language");
  fuzz_support::FailingPool pool(fail_allocation);
  fuzz_support::CoreServices services(firmware.system_table());
  auto* language = static_cast<tarvik::LanguageProtocol*>(fuzz_support::Located(tarvik::LanguageProtocolGuid));
  if (language == nullptr) {
    if (pool.fired()) return 0;
    Fail("not installed");
  }
  if (language->GetLanguage() >= kLanguages) Fail("a language the string tables lack");

  UINT64 count = 0;
  CHAR16** table = nullptr;
  if (EFI_ERROR(language->GetStringTable(u"Interface", &count, &table))) {
    if (table != nullptr || !pool.fired()) Fail("no interface texts");
    return 0;
  }
  if (table == nullptr || count == 0) Fail("no interface texts");
  for (UINT64 i = 0; i < count; ++i) tarvik::gBS->FreePool(table[i]);
  tarvik::gBS->FreePool(table);
  return 0;
}
