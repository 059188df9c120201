// The [nvme] section of a machine profile: an NVMe drive, its identity,
// namespaces, health figures, self-test and faults (docs/machine-profile.md).
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>

#include "hostfw/profile_reader.h"

namespace hostfw {
namespace {

bool digits(const std::string& t) {
  return !t.empty() && t.size() <= 19 && std::all_of(t.begin(), t.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

// "1000, 2000-2010, 2:77": LBAs or ranges, of namespace 1 unless an NSID
// and a colon come first.
std::vector<NamespaceLbas> namespace_lbas(const Reader& r, const Section& s, const std::string& key, const NvmeInfo& d,
                                          bool ranges) {
  const int line = s.line_of(key);
  std::vector<NamespaceLbas> out;
  for (const std::string& item : split_list(s.values.at(key).first)) {
    NamespaceLbas lbas;
    std::string rest = item;
    const size_t colon = item.find(':');
    if (colon != std::string::npos) {
      const std::string nsid = trim(item.substr(0, colon));
      if (!digits(nsid) || std::stoull(nsid) < 1 || std::stoull(nsid) > d.namespaces)
        r.fail(line, key + ": \"" + item + "\" names no namespace of this drive (1-" + std::to_string(d.namespaces) + ")");
      lbas.nsid = static_cast<uint32_t>(std::stoull(nsid));
      rest = item.substr(colon + 1);
    }
    const size_t dash = rest.find('-');
    const std::string first = trim(rest.substr(0, dash));
    const std::string last = dash == std::string::npos ? first : trim(rest.substr(dash + 1));
    if (!digits(first) || !digits(last))
      r.fail(line, key + " lists LBAs such as 1000, 2:1000" + (ranges ? ", 2000-2010" : "") + "; \"" + item + "\" is not one");
    if (!ranges && dash != std::string::npos) r.fail(line, key + " lists single LBAs, not ranges");
    lbas.first = std::stoull(first);
    lbas.last = std::stoull(last);
    if (lbas.last < lbas.first) r.fail(line, "the range " + item + " ends before it starts");
    if (lbas.last >= d.blocks) r.fail(line, "an LBA of " + key + " lies beyond the namespace's end");
    out.push_back(lbas);
  }
  return out;
}

}  // namespace

NvmeInfo read_nvme(const Reader& r, const Section& s) {
  NvmeInfo d;
  auto number = [&](const char* key, uint64_t min, uint64_t max) { return r.number(s, key, min, max); };
  auto byte = [&](uint8_t& field, const char* key, uint64_t max) {
    return [&field, &r, &s, key, max](const std::string&) { field = static_cast<uint8_t>(r.number(s, key, 0, max)); };
  };
  auto count = [&](uint64_t& field, const char* key) {
    return [&field, &r, &s, key](const std::string&) { field = r.number(s, key, 0, 1ull << 48); };
  };
  auto ignore = [](const std::string&) {};  // read below, once the namespaces' size is known
  std::string self_test = "pass";
  r.read(s,
         {{"model", [&](const std::string&) { d.model = device_string(r, s, "model", 40); }},
          {"serial", [&](const std::string&) { d.serial = device_string(r, s, "serial", 20); }},
          {"firmware", [&](const std::string&) { d.firmware = device_string(r, s, "firmware", 8); }},
          {"size_gib", ignore},
          {"blocks", [&](const std::string&) { d.blocks = number("blocks", 2048, 1ull << 48); }},
          {"lba_size",
           [&](const std::string&) {
             d.lba_bytes = static_cast<uint32_t>(number("lba_size", 512, 4096));
             if (d.lba_bytes != 512 && d.lba_bytes != 4096) r.fail(s.line_of("lba_size"), "lba_size must be 512 or 4096");
           }},
          {"namespaces", [&](const std::string&) { d.namespaces = static_cast<uint32_t>(number("namespaces", 1, 16)); }},
          {"mdts", byte(d.mdts, "mdts", 10)},
          {"io_align",
           [&](const std::string&) {
             d.io_align = static_cast<uint32_t>(number("io_align", 0, 4096));
             if ((d.io_align & (d.io_align - 1)) != 0) r.fail(s.line_of("io_align"), "io_align must be 0 or a power of two");
           }},
          {"media_mb_per_s",
           [&](const std::string&) { d.media_mb_per_s = static_cast<uint32_t>(number("media_mb_per_s", 0, 100000)); }},
          {"critical_warning",
           [&](const std::string&) { d.critical_warning = static_cast<uint8_t>(r.register_value(s, "critical_warning", 0xFF)); }},
          {"available_spare", byte(d.available_spare, "available_spare", 100)},
          {"spare_threshold", byte(d.spare_threshold, "spare_threshold", 100)},
          {"percentage_used", byte(d.percentage_used, "percentage_used", 255)},
          {"media_errors", count(d.media_errors, "media_errors")},
          {"temperature_c", byte(d.temperature_c, "temperature_c", 120)},
          {"power_on_hours", count(d.power_on_hours, "power_on_hours")},
          {"power_cycles", count(d.power_cycles, "power_cycles")},
          {"unsafe_shutdowns", count(d.unsafe_shutdowns, "unsafe_shutdowns")},
          {"self_test", [&](const std::string& v) { self_test = v; }},
          {"self_test_seconds",
           [&](const std::string&) { d.self_test_seconds = static_cast<uint32_t>(number("self_test_seconds", 1, 86400)); }},
          {"verify", [&](const std::string&) { d.verify = r.flag(s, "verify"); }},
          {"bad_lbas", ignore},
          {"error_log_lbas", ignore},
          {"stop_answering_after",
           [&](const std::string&) { d.stop_answering_after = number("stop_answering_after", 0, 1ull << 40); }}},
         {"model", "serial"});

  if (s.has("blocks") && s.has("size_gib")) r.fail(s.line, "give blocks or size_gib, not both");
  if (s.has("size_gib")) d.blocks = number("size_gib", 1, 1u << 20) * (1ull << 30) / d.lba_bytes;
  if (d.blocks == 0) r.fail(s.line, "[nvme] needs \"blocks\" or \"size_gib\"");
  if (self_test != "pass" && self_test != "fail" && self_test != "unsupported")
    r.fail(s.line_of("self_test"), "self_test must be pass, fail or unsupported");
  d.self_test = self_test == "fail"          ? NvmeSelfTest::kFail
                : self_test == "unsupported" ? NvmeSelfTest::kUnsupported
                                             : NvmeSelfTest::kPass;
  if (s.has("bad_lbas")) d.bad_lbas = namespace_lbas(r, s, "bad_lbas", d, true);
  if (s.has("error_log_lbas")) d.error_log_lbas = namespace_lbas(r, s, "error_log_lbas", d, false);
  return d;
}

}  // namespace hostfw
