#include "memtest/memory_texts.h"

#include "core/wide_string.h"
#include "memtest/memory_test_state.h"

namespace tarvik {

namespace {

struct TypeName {
  UINT64 Type;
  const CHAR16* Name;
};
constexpr TypeName TypeNames[] = {
    {3, u"DRAM"},   {4, u"EDRAM"},  {5, u"VRAM"},   {6, u"SRAM"},   {7, u"RAM"},   {8, u"ROM"},
    {9, u"FLASH"},  {10, u"EEPROM"}, {11, u"FEPROM"}, {12, u"EPROM"}, {13, u"CDRAM"}, {14, u"3DRAm"},
    {15, u"SDRAM"}, {16, u"SGRAM"}, {17, u"RDRAM"}, {18, u"DDR"},   {19, u"DDR2"}, {20, u"DDR2 FB-DIMM"},
    {24, u"DDR3"},  {25, u"FBD2"},
};

// Searched in this order; the first equal key wins.
struct KeyText {
  const CHAR16* Key;
  UINT64 Text;
};
constexpr KeyText KeyTexts[] = {
    {u"MEMORY", 1},          {u"MAIN_MEMORY", 2},   {u"PHYSICAL_MEMORY", 48},
    {u"BANK", 96},           {u"MANUFACTURER", 52}, {u"SPEED", 97},
    {u"SIZE", 51},           {u"PART_NUMBER", 53},  {u"SERIAL_NUMBER", 54},
    {u"TESTED_SIZE", 98},    {u"WRITE_READ_ERROR", 99}, {u"CANT_ALLOCATE_MEMORY SIZE", 100},
    {u"UNKNOWN_ALGORITHM", 32}, {u"ADVANCED_INTEGRITY", 33}, {u"WROTE", 101},
    {u"READ", 102},          {u"MEMORY_NOT_IN_USE", 103}, {u"INSTALLED", 104},
    {u"MAPPED", 105},        {u"MODULE_SLOT", 106},
    {u"READ", 102},          {u"PROCESSORS", 108},  {u"PROCESSOR_NOT_RESPONDING", 109},
};

}  // namespace

const CHAR16* MemoryText(UINT64 Id) {
  const TestModuleInstallation& Texts = MemoryTest.Installation;
  if (Texts.Strings == nullptr || Id >= Texts.StringCount || Texts.Strings[Id] == nullptr) return u"";
  return Texts.Strings[Id];
}

const CHAR16* MemoryTypeName(UINT64 Type) {
  for (const TypeName& Entry : TypeNames)
    if (Entry.Type == Type) return Entry.Name;
  return u"Unkown";
}

const CHAR16* MemoryKeyText(const CHAR16* Key) {
  if (Key == nullptr) return nullptr;
  for (const KeyText& Entry : KeyTexts)
    if (StrCmp(Entry.Key, Key) == 0) return MemoryText(Entry.Text);
  return nullptr;
}

}  // namespace tarvik
