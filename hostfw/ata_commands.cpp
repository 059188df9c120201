#include "hostfw/ata_commands.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "hostfw/ata_command_set.h"

namespace hostfw {
using namespace ata;
namespace {

// What a command moves, known before it runs.
struct Transfer {
  enum Direction { kNone, kIn, kOut } direction = kNone;
  uint64_t bytes = 0;
};

uint64_t lba28(const EFI_ATA_COMMAND_BLOCK& c) {
  return c.AtaSectorNumber | c.AtaCylinderLow << 8 | c.AtaCylinderHigh << 16 | (c.AtaDeviceHead & 0x0Full) << 24;
}
uint64_t lba48(const EFI_ATA_COMMAND_BLOCK& c) {
  return c.AtaSectorNumber | c.AtaCylinderLow << 8 | c.AtaCylinderHigh << 16 | uint64_t{c.AtaSectorNumberExp} << 24 |
         uint64_t{c.AtaCylinderLowExp} << 32 | uint64_t{c.AtaCylinderHighExp} << 40;
}
uint64_t count28(const EFI_ATA_COMMAND_BLOCK& c) { return c.AtaSectorCount == 0 ? 256 : c.AtaSectorCount; }
uint64_t count48(const EFI_ATA_COMMAND_BLOCK& c) {
  const uint64_t n = c.AtaSectorCount | c.AtaSectorCountExp << 8;
  return n == 0 ? 65536 : n;
}

Transfer transfer_of(const EFI_ATA_COMMAND_BLOCK& c, uint64_t sector_bytes) {
  switch (c.AtaCommand) {
    case kIdentifyDevice:
    case kIdentifyPacketDevice: return {Transfer::kIn, kPage};
    case kWriteSectors: return {Transfer::kOut, count28(c) * sector_bytes};
    case kWriteSectorsExt: return {Transfer::kOut, count48(c) * sector_bytes};
    case kReadLogExt: return {Transfer::kIn, uint64_t(c.AtaSectorCount | c.AtaSectorCountExp << 8) * kPage};
    case kSmart:
      if (c.AtaFeatures == kSmartReadData || c.AtaFeatures == kSmartReadThresholds) return {Transfer::kIn, kPage};
      if (c.AtaFeatures == kSmartReadLog) return {Transfer::kIn, uint64_t{c.AtaSectorCount} * kPage};
      return {};
    default: return {};
  }
}

bool protocol_reads(UINT8 p) {
  return p == EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_IN || p == EFI_ATA_PASS_THRU_PROTOCOL_UDMA_DATA_IN ||
         p == EFI_ATA_PASS_THRU_PROTOCOL_DMA;
}
bool protocol_writes(UINT8 p) {
  return p == EFI_ATA_PASS_THRU_PROTOCOL_PIO_DATA_OUT || p == EFI_ATA_PASS_THRU_PROTOCOL_UDMA_DATA_OUT ||
         p == EFI_ATA_PASS_THRU_PROTOCOL_DMA;
}

void put_lba(EFI_ATA_STATUS_BLOCK& s, uint64_t lba, bool ext, uint8_t device) {
  s.AtaSectorNumber = static_cast<uint8_t>(lba);
  s.AtaCylinderLow = static_cast<uint8_t>(lba >> 8);
  s.AtaCylinderHigh = static_cast<uint8_t>(lba >> 16);
  if (ext) {
    s.AtaSectorNumberExp = static_cast<uint8_t>(lba >> 24);
    s.AtaCylinderLowExp = static_cast<uint8_t>(lba >> 32);
    s.AtaCylinderHighExp = static_cast<uint8_t>(lba >> 40);
    s.AtaDeviceHead = static_cast<uint8_t>(device & 0xF0);
  } else {
    s.AtaSectorNumberExp = s.AtaCylinderLowExp = s.AtaCylinderHighExp = 0;
    s.AtaDeviceHead = static_cast<uint8_t>((device & 0xF0) | ((lba >> 24) & 0x0F));
  }
}

// One command in progress: the drive, the command block, the status block
// being filled and the data the drive sends back.
struct Exchange {
  AtaDrive& drive;
  const EFI_ATA_COMMAND_BLOCK c;
  EFI_ATA_STATUS_BLOCK& s;
  uint64_t now;
  std::vector<uint8_t> data;
  uint64_t media_sectors = 0;  // sectors the heads passed over

  AtaCompletion fail(uint8_t error) {
    s.AtaStatus = kStatusError;
    s.AtaError = error;
    return AtaCompletion::kError;
  }
  AtaCompletion fail_at(uint8_t error, uint64_t lba, bool ext) {
    put_lba(s, lba, ext, c.AtaDeviceHead);
    return fail(error);
  }
  // The end of an access that met a faulty sector.
  AtaCompletion fault_at(MediaFault fault, uint64_t lba, bool ext) {
    switch (fault) {
      case MediaFault::kHang: return AtaCompletion::kTimeout;
      case MediaFault::kIdNotFound: return fail_at(kErrorIdNotFound, lba, ext);
      case MediaFault::kUncorrectable:
        drive.log_error(lba, now);
        s.AtaSectorCount = s.AtaSectorCountExp = 0;
        // Some firmware reports the error without the sector's address.
        return fail_at(kErrorUncorrectable, drive.info.unc_lba_unreported ? 0 : lba, ext);
      case MediaFault::kAbort:
      case MediaFault::kUnwritable: return fail_at(kErrorAbort, lba, ext);
      case MediaFault::kNone: break;
    }
    return AtaCompletion::kDone;
  }
  uint8_t* page(size_t pages = 1) {
    data.assign(pages * kPage, 0);
    return data.data();
  }
};

// READ VERIFY or WRITE SECTORS, in either register form. The access stops
// at the range's first faulty sector; a write stores the sectors before it.
// The media time covers the sectors up to and including the one it stopped
// at (a drive that never answers times out instead).
AtaCompletion media_access(Exchange& x, bool writing) {
  const bool ext = x.c.AtaCommand == kReadVerifyExt || x.c.AtaCommand == kWriteSectorsExt;
  const uint64_t lba = ext ? lba48(x.c) : lba28(x.c);
  const uint64_t count = ext ? count48(x.c) : count28(x.c);
  if (!x.drive.in_range(lba, count)) return x.fail_at(kErrorIdNotFound, lba, ext);
  uint64_t at = 0;
  const MediaFault fault = x.drive.first_fault(lba, count, writing, &at);
  const uint64_t written = fault == MediaFault::kNone ? count : at - lba;
  if (fault != MediaFault::kHang) x.media_sectors = fault == MediaFault::kNone ? count : at - lba + 1;
  if (writing && written > 0) x.drive.write(lba, written);
  return x.fault_at(fault, at, ext);
}

AtaCompletion write_uncorrectable(Exchange& x) {
  // Pseudo-uncorrectable (logged) and flagged: both read back as UNC.
  if (x.c.AtaFeatures != kPseudoUncorrectable && x.c.AtaFeatures != kFlaggedUncorrectable)
    return x.fail(kErrorAbort);
  const uint64_t lba = lba48(x.c), count = count48(x.c);
  if (!x.drive.in_range(lba, count)) return x.fail_at(kErrorIdNotFound, lba, true);
  x.drive.make_uncorrectable(lba, count);
  return AtaCompletion::kDone;
}

// Pages of a log: READ LOG EXT names the first page (LBA bits 15:8 and
// 39:32), SMART READ LOG always starts at the first.
AtaCompletion read_log(Exchange& x, uint64_t first, uint64_t pages, bool general_purpose) {
  const uint8_t address = x.c.AtaSectorNumber;
  const uint64_t kept = x.drive.log_pages(address, general_purpose);
  if (pages == 0 || first + pages > kept) return x.fail(kErrorAbort);
  x.drive.settle(x.now);
  x.drive.read_log(address, first, pages, general_purpose, x.page(pages));
  return AtaCompletion::kDone;
}

AtaCompletion smart_execute_offline(Exchange& x) {
  AtaDrive& d = x.drive;
  const uint8_t subcommand = x.c.AtaSectorNumber;
  if (subcommand != kOfflineDataCollection && !d.info.self_test_supported) return x.fail(kErrorAbort);
  switch (subcommand) {
    case kOfflineDataCollection: d.offline_status = 0x82; break;  // done at once
    case kVendorDriveSelfTest:
      if (d.info.refuse_vendor_self_test) return x.fail(kErrorAbort);
      [[fallthrough]];
    case kShortSelfTest:
    case kExtendedSelfTest:
    case kConveyanceSelfTest:
      // A new self-test replaces one still running, which is logged as aborted.
      d.interrupt(kTestAbortedByHost, x.now);
      d.start_test(x.c.AtaSectorNumber, x.now);
      break;
    case kAbortSelfTest: d.interrupt(kTestAbortedByHost, x.now); break;
    default: return x.fail(kErrorAbort);  // captive, selective and other vendor tests
  }
  return AtaCompletion::kDone;
}

AtaCompletion smart(Exchange& x) {
  AtaDrive& d = x.drive;
  if (!d.info.smart_supported) return x.fail(kErrorAbort);
  if (x.c.AtaCylinderLow != kSmartLbaMid || x.c.AtaCylinderHigh != kSmartLbaHigh) return x.fail(kErrorAbort);
  if (!d.smart_enabled && x.c.AtaFeatures != kSmartEnable) return x.fail(kErrorAbort);
  switch (x.c.AtaFeatures) {
    case kSmartReadData: d.smart_data(x.page(), x.now); break;
    case kSmartReadThresholds: d.smart_thresholds(x.page(), x.now); break;
    case kSmartEnable:
      if (d.info.refuse_smart_enable) return x.fail(kErrorAbort);
      d.smart_enabled = true;
      break;
    case kSmartDisable: d.smart_enabled = false; break;
    case kSmartReturnStatus:
      if (d.threshold_exceeded(x.now)) {
        x.s.AtaCylinderLow = kSmartExceededLbaMid;
        x.s.AtaCylinderHigh = kSmartExceededLbaHigh;
      }
      break;
    case kSmartExecuteOffline: return smart_execute_offline(x);
    case kSmartReadLog: return read_log(x, 0, x.c.AtaSectorCount, false);
    default: return x.fail(kErrorAbort);
  }
  return AtaCompletion::kDone;
}

// The status block of a command: its own registers, unless it changes them.
void echo_registers(const EFI_ATA_COMMAND_BLOCK& c, EFI_ATA_STATUS_BLOCK& s) {
  std::memset(&s, 0, sizeof s);
  s.AtaSectorNumber = c.AtaSectorNumber;
  s.AtaCylinderLow = c.AtaCylinderLow;
  s.AtaCylinderHigh = c.AtaCylinderHigh;
  s.AtaDeviceHead = c.AtaDeviceHead;
  s.AtaSectorNumberExp = c.AtaSectorNumberExp;
  s.AtaCylinderLowExp = c.AtaCylinderLowExp;
  s.AtaCylinderHighExp = c.AtaCylinderHighExp;
  s.AtaSectorCount = c.AtaSectorCount;
  s.AtaSectorCountExp = c.AtaSectorCountExp;
  s.AtaStatus = kStatusReady;
}

void count(AtaDrive& drive, const EFI_ATA_COMMAND_BLOCK& c) {
  AtaCommandCounts& counts = drive.counts;
  ++counts.total;
  ++counts.by_command[c.AtaCommand];
  if (c.AtaCommand == kSmart) ++counts.by_smart_feature[c.AtaFeatures];
}

bool needs_lba48(uint8_t command) {
  return command == kReadVerifyExt || command == kWriteSectorsExt || command == kWriteUncorrectableExt;
}

// A packet device answers IDENTIFY PACKET DEVICE; IDENTIFY DEVICE and every
// other ATA command abort, IDENTIFY DEVICE with the packet signature.
AtaCompletion packet_device(Exchange& x) {
  if (x.c.AtaCommand == kIdentifyPacketDevice) {
    x.drive.identify_packet_data(x.page());
    return AtaCompletion::kDone;
  }
  if (x.c.AtaCommand == kIdentifyDevice) {
    x.s.AtaSectorCount = 0x01;
    x.s.AtaSectorNumber = 0x01;
    x.s.AtaCylinderLow = kPacketLbaMid;
    x.s.AtaCylinderHigh = kPacketLbaHigh;
  }
  return x.fail(kErrorAbort);
}

AtaCompletion dispatch(Exchange& x, const Transfer& transfer) {
  if (x.drive.info.atapi) return packet_device(x);
  if (needs_lba48(x.c.AtaCommand) && !x.drive.info.lba48) return x.fail(kErrorAbort);
  switch (x.c.AtaCommand) {
    case kIdentifyDevice: x.drive.identify_data(x.page()); return AtaCompletion::kDone;
    case kReadVerify:
    case kReadVerifyExt: return media_access(x, false);
    case kWriteSectors:
    case kWriteSectorsExt: return media_access(x, true);
    case kWriteUncorrectableExt: return write_uncorrectable(x);
    case kReadLogExt:
      return read_log(x, x.c.AtaCylinderLow | x.c.AtaCylinderLowExp << 8, transfer.bytes / kPage, true);
    case kSmart: return smart(x);
    default: return x.fail(kErrorAbort);
  }
}

}  // namespace

bool ata_protocol_carried(UINT8 p) {
  return p == EFI_ATA_PASS_THRU_PROTOCOL_ATA_NON_DATA || protocol_reads(p) || protocol_writes(p);
}

AtaExecution execute_ata_command(AtaDrive& drive, EFI_ATA_PASS_THRU_COMMAND_PACKET& packet, uint64_t now_ns) {
  const EFI_ATA_COMMAND_BLOCK& c = *packet.Acb;
  // Transfer lengths count bytes, or logical sectors without the bytes flag.
  const uint64_t sector_bytes = drive.info.logical_sector_bytes;
  const uint64_t unit = (packet.Length & EFI_ATA_PASS_THRU_LENGTH_BYTES) != 0 ? 1 : sector_bytes;
  const Transfer transfer = transfer_of(c, sector_bytes);
  EFI_ATA_STATUS_BLOCK& s = *packet.Asb;
  echo_registers(c, s);
  Exchange x{drive, c, s, now_ns, {}};

  auto finish = [&](AtaCompletion completion) {
    if (completion != AtaCompletion::kDone) {
      packet.InTransferLength = 0;
      packet.OutTransferLength = 0;
    }
    if (completion == AtaCompletion::kTimeout) s.AtaStatus = 0x80;  // BSY: the drive never finished
    return AtaExecution{completion, drive.media_ns(x.media_sectors)};
  };

  // The packet must carry the command's data the way the command moves it:
  // data the drive sends with nowhere to go fails the transfer, as it does on
  // the controller; a buffer too small is refused before anything runs.
  const uint64_t in_bytes = uint64_t{packet.InTransferLength} * unit;
  const uint64_t out_bytes = uint64_t{packet.OutTransferLength} * unit;
  if (transfer.direction == Transfer::kIn && transfer.bytes > 0) {
    if (!protocol_reads(packet.Protocol)) return finish(x.fail(kErrorAbort));
    if (in_bytes < transfer.bytes) {
      packet.InTransferLength = static_cast<UINT32>((transfer.bytes + unit - 1) / unit);
      return {AtaCompletion::kBadBufferSize};
    }
  }
  if (transfer.direction == Transfer::kOut) {
    if (!protocol_writes(packet.Protocol)) return finish(x.fail(kErrorAbort));
    if (out_bytes < transfer.bytes) {
      packet.OutTransferLength = static_cast<UINT32>((transfer.bytes + unit - 1) / unit);
      return {AtaCompletion::kBadBufferSize};
    }
  }

  count(drive, c);
  // A drive that has fallen silent takes commands and never completes them.
  if (drive.counts.total > drive.info.stop_answering_after) return finish(AtaCompletion::kTimeout);
  const AtaCompletion completion = dispatch(x, transfer);
  if (completion != AtaCompletion::kDone) return finish(completion);

  if (transfer.direction == Transfer::kIn && !x.data.empty()) {
    std::memcpy(packet.InDataBuffer, x.data.data(), x.data.size());
    packet.InTransferLength = static_cast<UINT32>(x.data.size() / unit);
  } else {
    packet.InTransferLength = 0;
  }
  packet.OutTransferLength = transfer.direction == Transfer::kOut ? static_cast<UINT32>(transfer.bytes / unit) : 0;
  return {AtaCompletion::kDone, drive.media_ns(x.media_sectors)};
}

}  // namespace hostfw
