// tarvik: the application on the host firmware, in a terminal.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>

#include "core/status_text.h"
#include "hostfw/console_out.h"
#include "hostfw/decode_command.h"
#include "hostfw/machine.h"
#include "hostfw/utf8.h"

extern "C" EFIAPI EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

namespace {

constexpr const char* kUsage = R"(Usage: tarvik [options]
Runs Tarvik on a simulated PC in this terminal.

  --machine FILE          machine profile to simulate (default: the embedded machine)
  --print-machine         print the embedded machine profile and exit
  --keys FILE             type the keys of a key script instead of reading the keyboard
  --keys-text SCRIPT      the same, with the script given inline (steps separated by ';')
  --virtual-clock         time moves only when the firmware lets it (repeatable runs)
  --no-terminal           do not draw on the terminal (for scripted runs)
  --dump-screen FILE      write the last screen as text to FILE ('-' for standard output)
  --check-leaks           fail when pool or page allocations are left after the run
  --decode CODE           say what a result code means and exit: the module, the
                          algorithms that ran and failed, the date it allows
    --serial SERIAL       with --decode: whether the machine's serial number fits
    --json                with --decode: one JSON object instead of text
  --help                  this text

Without a key script tarvik reads the keyboard and draws on the terminal:
its input and output must both be a terminal (not a pipe or a file).

Exit status: 0 after a cold reset with success (and for a decoded code), 1
after any other reset, 2 for bad options, a malformed profile or code, or
no way to type keys, 3 when the application returned to the firmware, 4 when
a scripted run could not go on, 5 for leaks.
)";

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Why the keyboard cannot be read and the screen not drawn.
std::string no_keyboard_reason(bool no_terminal) {
  if (no_terminal) return "--no-terminal was given without a key script";
  if (!isatty(STDIN_FILENO) && !isatty(STDOUT_FILENO)) return "neither input nor output is a terminal";
  if (!isatty(STDOUT_FILENO)) return "the output is not a terminal (a pipe or a file)";
  return "the input is not a terminal (a pipe or a file)";
}

}  // namespace

int main(int argc, char** argv) {
  std::string machine_file, dump_file;
  std::optional<std::string> decode_code, serial;
  bool decode_json = false, no_terminal = false;
  hostfw::Options options;
  bool terminal = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
  bool check_leaks = false;
  try {
    for (int i = 1; i < argc; ++i) {
      const std::string arg = argv[i];
      auto value = [&]() -> std::string {
        if (i + 1 >= argc) throw std::invalid_argument(arg + " needs a value");
        return argv[++i];
      };
      if (arg == "--machine") machine_file = value();
      else if (arg == "--keys") options.key_script = read_file(value());
      else if (arg == "--keys-text") options.key_script = value();
      else if (arg == "--virtual-clock") options.virtual_clock = true;
      else if (arg == "--no-terminal") no_terminal = true;
      else if (arg == "--decode") decode_code = value();
      else if (arg == "--serial") serial = value();
      else if (arg == "--json") decode_json = true;
      else if (arg == "--dump-screen") dump_file = value();
      else if (arg == "--check-leaks") check_leaks = true;
      else if (arg == "--print-machine") {
        std::cout << hostfw::default_profile_text();
        return 0;
      } else if (arg == "--help" || arg == "-h") {
        std::cout << kUsage;
        return 0;
      } else {
        throw std::invalid_argument("unknown option " + arg + " (see --help)");
      }
    }
    if (!decode_code && (serial || decode_json)) throw std::invalid_argument("--serial and --json go with --decode");
  } catch (const std::exception& e) {
    std::cerr << "tarvik: " << e.what() << "\n";
    return 2;
  }
  if (decode_code) return hostfw::decode_command(*decode_code, serial, decode_json, std::cout, std::cerr);
  if (no_terminal) terminal = false;

  hostfw::Profile profile;
  try {
    profile = machine_file.empty() ? hostfw::default_profile(".") : hostfw::load_profile_file(machine_file);
  } catch (const hostfw::ProfileError& e) {
    std::cerr << "tarvik: machine profile refused: " << e.what() << "\n";
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "tarvik: " << e.what() << "\n";
    return 2;
  }

  // Nobody could type a key: say so now rather than wait for one.
  if (!terminal && options.key_script.empty()) {
    std::cerr << "tarvik: " << no_keyboard_reason(no_terminal)
              << ": nothing could type a key. Run tarvik in a terminal without a pipe or redirection, or give the "
                 "keys with --keys FILE or --keys-text SCRIPT (with --no-terminal to draw nothing).\n";
    return 2;
  }
  options.use_terminal = terminal;
  hostfw::RunResult result;
  size_t leaked_pools = 0;
  uint64_t leaked_pages = 0;
  std::string screen;
  try {
    hostfw::Machine machine(std::move(profile), options);
    result = machine.run(_ModuleEntryPoint);
    leaked_pools = machine.memory().outstanding_pools();
    leaked_pages = machine.memory().outstanding_pages();
    std::ostringstream dump;
    machine.console().dump(dump);
    screen = dump.str();
  } catch (const std::exception& e) {
    std::cerr << "tarvik: " << e.what() << "\n";
    return 2;
  }
  // The machine (and with it the terminal's raw mode) is gone: report plainly.
  if (!dump_file.empty()) {
    if (dump_file == "-") {
      std::cout << screen;
    } else {
      std::ofstream(dump_file, std::ios::binary) << screen;
    }
  }

  using End = hostfw::RunResult::End;
  int code = 0;
  switch (result.end) {
    case End::Reset:
      code = result.reset_type == EfiResetCold && result.status == EFI_SUCCESS ? 0 : 1;
      if (code != 0) std::cerr << "tarvik: reset with status " << hostfw::utf8_from_utf16(tarvik::StatusToString(result.status)) << "\n";
      break;
    case End::Returned:
      std::cerr << "tarvik: the application returned to the firmware: "
                << hostfw::utf8_from_utf16(tarvik::StatusToString(result.status)) << "\n";
      code = 3;
      break;
    case End::Stuck:
      std::cerr << "tarvik: run stopped: " << result.reason << "\n";
      code = 4;
      break;
  }
  if (check_leaks && (leaked_pools != 0 || leaked_pages != 0)) {
    std::cerr << "tarvik: left allocated after the run: " << leaked_pools << " pool buffers, " << leaked_pages
              << " pages\n";
    if (code == 0) code = 5;
  }
  return code;
}
