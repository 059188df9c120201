// System Information as a technician sees it: the Machine tab from the
// machine's SMBIOS tables, one tab per module that reports rows, the tab bar,
// wrapping of long values and scrolling of a long tab.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "hostfw/console_out.h"
#include "tests/support/application_with_modules.h"

namespace {

using testing_support::ApplicationSetup;
using testing_support::FakeTestModule;
using testing_support::run_to_reset;
using testing_support::TestMachine;
using testing_support::trimmed;
std::u16string numbered(const char16_t* prefix, int n) {
  return prefix + std::u16string(1, u'0' + n / 10) + std::u16string(1, u'0' + n % 10);
}

// Opens System Information from the main screen, then leaves the application.
constexpr char kOpen[] = "wait \"Main Screen\"; key Right; key Enter; wait \"Machine Information\";";
constexpr char kLeave[] = "key Esc; wait \"Main Screen\"; key Left; key Up; key Enter";

TEST(SystemInformation, ModuleTabsWrapLongValuesScrollAndResetWhenTheTabChanges) {
  TestMachine machine(std::string(kOpen) +
                      "snap \"machine\"; key Tab; snap \"memory\"; key Tab; snap \"storage\"; key PgDn;"
                      "snap \"paged\"; key Down; snap \"down\"; key Tab; snap \"wrapped\"; key Left;"
                      "snap \"left\";" + kLeave);
  FakeTestModule memory(machine->image_handle());
  memory.test_name = u"Quick Memory Test";
  memory.module_name = u"Memory";
  const std::u16string long_value =
      u"Seventy characters of value text, broken at spaces into three lines ok";
  memory.system_info = {{u"Total memory", u"512 MB"}, {u"Modules", long_value}, {u"Slots", u"4"}};
  FakeTestModule silent(machine->image_handle());  // no rows: no tab
  silent.test_name = u"Silent Test";
  FakeTestModule storage(machine->image_handle());
  storage.test_name = u"Quick Storage Device Test";
  storage.module_name = u"Storage";
  for (int i = 1; i <= 59; ++i) storage.system_info.push_back({numbered(u"Row ", i), numbered(u"Value ", i)});
  run_to_reset(machine, ApplicationSetup{.modules = {&memory, &silent, &storage}});
  const hostfw::ConsoleOut& console = machine->console();

  // The Machine tab from the SMBIOS tables: labels from column 15, values from
  // 50; the processor version, 42 characters, wrapped at its last blank that
  // fits in 35 columns, needs the taller box.
  const hostfw::ScreenGrid& tab = console.snapshot("machine").grid;
  for (const auto& [row, label, value] : {std::tuple{10, "Machine Serial Number:", "KVN7400-2418-0095"},
                                          {16, "BIOS Release Date:", "03/18/2025"},
                                          {23, "Processor Version:", "Velora V7 6800 8-Core Processor @"},
                                          {24, "", "3.40GHz"}}) {
    EXPECT_EQ(trimmed(tab.text_at(15, row, 35)), label) << row;
    EXPECT_EQ(trimmed(tab.text_at(50, row, 35)), value) << row;
  }
  EXPECT_EQ(tab.text_at(13, 6, 1) + tab.text_at(85, 11, 1) + tab.text_at(13, 25, 1), "╔╝╚");

  // "<- " + " Machine " + " Memory " + " Storage " + " ->": 32 columns, from (100 - 32) / 2.
  const hostfw::ScreenGrid& mem = console.snapshot("memory").grid;
  EXPECT_EQ(mem.text_at(34, 3, 32), "<-  Machine  Memory  Storage  ->");
  EXPECT_EQ(mem.attribute_at(38, 3), 0x30);
  EXPECT_EQ(mem.attribute_at(47, 3), 0x1F);  // " Memory " is the active tab
  // Line 0 is the test's name; the 70-character value takes two continuation lines.
  for (const auto& [column, row, text] :
       {std::tuple{15, 6, "Quick Memory Test"}, {15, 7, "Total memory"}, {50, 7, "512 MB"},
        {50, 8, "Seventy characters of value text,"}, {50, 9, "broken at spaces into three lines"}, {50, 10, "ok"},
        {15, 11, "Slots"}})
    EXPECT_EQ(trimmed(mem.text_at(column, row, 34)), text) << row;
  EXPECT_EQ(mem.text_at(98, 5, 1), " ");  // five lines fit: no scroll bar

  // 60 lines, 21 shown (rows 6 to 26), with a scroll bar in column 98.
  const hostfw::ScreenGrid& top = console.snapshot("storage").grid;
  EXPECT_EQ(trimmed(top.text_at(15, 6, 35)), "Quick Storage Device Test");
  EXPECT_EQ(trimmed(top.text_at(15, 26, 35)), "Row 20");
  EXPECT_EQ(top.text_at(13, 27, 1) + top.text_at(98, 5, 1) + top.text_at(98, 27, 1), "╚▲▼");
  EXPECT_EQ(top.attribute_at(98, 6) * 0x100 + top.attribute_at(98, 7), 0x7000);
  // Page Down moves 20 lines, Down one more.
  EXPECT_EQ(trimmed(console.snapshot("paged").grid.text_at(15, 6, 35)), "Row 20");
  EXPECT_EQ(trimmed(console.snapshot("paged").grid.text_at(50, 26, 34)), "Value 40");
  EXPECT_EQ(trimmed(console.snapshot("down").grid.text_at(15, 6, 35)), "Row 21");

  // Tab on the last tab returns to Machine; Left from Machine selects the last tab, scrolled to the top.
  EXPECT_NE(console.snapshot("wrapped").grid.row_text(7).find("Korvan Systems"), std::string::npos);
  const hostfw::ScreenGrid& left = console.snapshot("left").grid;
  EXPECT_EQ(left.attribute_at(56, 3), 0x1F);
  EXPECT_EQ(trimmed(left.text_at(15, 6, 35)), "Quick Storage Device Test");
}

TEST(SystemInformation, AMissingProcessorStructureEndsTheMachineTabThereAndTheScreenStaysUsable) {
  TestMachine machine(std::string(kOpen) + "snap \"machine\";" + kLeave,
                      [](hostfw::Profile& profile) { profile.processors.clear(); });
  run_to_reset(machine, ApplicationSetup{});
  const hostfw::ScreenGrid& grid = machine->console().snapshot("machine").grid;
  EXPECT_TRUE(grid.contains("Tarvik Firmware Works"));
  EXPECT_TRUE(grid.contains("Processor Information"));
  EXPECT_FALSE(grid.contains("Processor Manufacturer:"));
}

}  // namespace
