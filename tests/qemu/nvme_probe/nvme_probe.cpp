// A test image that asks every NVMe controller the firmware publishes what a
// diagnostics program relies on, and prints each answer on the console as
// one "NVME key value" line, then resets the machine. Nothing but reads: it
// sends Identify, Get Log Page, Device Self-test, Read and Verify.
//
// Its QEMU test gives it one drive whose 512-byte sector ProbeBadLba fails to
// read (blkdebug), and checks the answers QEMU's NVMe controller gives.
#include "efi/efi.h"

namespace nvmeprobe {
namespace {

constexpr UINT64 ProbeBadLba = 4096;
constexpr UINT64 TimeoutOf5s = 50000000;
constexpr UINTN BufferPages = 512;  // 2 MiB: room for a read above MDTS

EFI_SYSTEM_TABLE* ST;
UINT8* Buffer;

void Out(const char* Text) {
  CHAR16 Wide[160];
  UINTN N = 0;
  while (*Text != 0 && N + 1 < sizeof Wide / sizeof Wide[0]) Wide[N++] = static_cast<UINT8>(*Text++);
  Wide[N] = 0;
  ST->ConOut->OutputString(ST->ConOut, Wide);
}

void Hex(UINT64 Value) {
  char Text[19] = "0x";
  int Digits = 1;
  for (UINT64 V = Value >> 4; V != 0; V >>= 4) ++Digits;
  for (int I = 0; I < Digits; ++I) Text[2 + I] = "0123456789abcdef"[(Value >> (4 * (Digits - 1 - I))) & 0xF];
  Text[2 + Digits] = 0;
  Out(Text);
}

void Fact(const char* Key, UINT64 Value) {
  Out("NVME ");
  Out(Key);
  Out(" ");
  Hex(Value);
  Out("\r\n");
}

void Text(const char* Key, const UINT8* Bytes, UINTN Size) {
  char Line[64] = {};
  for (UINTN I = 0; I < Size && I + 1 < sizeof Line; ++I)
    Line[I] = Bytes[I] >= 0x20 && Bytes[I] < 0x7F ? Bytes[I] : '.';
  Out("NVME ");
  Out(Key);
  Out(" \"");
  Out(Line);
  Out("\"\r\n");
}

UINT64 Le(const UINT8* At, int Bytes) {
  UINT64 V = 0;
  for (int I = Bytes - 1; I >= 0; --I) V = V << 8 | At[I];
  return V;
}

// A little-endian field of a page: its key, offset and size in bytes.
struct Field {
  const char* Key;
  UINTN Offset;
  int Bytes;
};

constexpr Field ControllerFields[] = {{"vid", 0, 2},     {"mdts", 77, 1}, {"ver", 80, 4},
                                      {"oacs", 256, 2},  {"lpa", 261, 1}, {"elpe", 262, 1},
                                      {"edstt", 316, 2}, {"nn", 516, 4},  {"oncs", 520, 2}};
constexpr Field HealthFields[] = {
    {"critical_warning", 0, 1}, {"temperature_k", 1, 2},      {"available_spare", 3, 1}, {"spare_threshold", 4, 1},
    {"percentage_used", 5, 1},  {"data_units_read", 32, 8},   {"host_reads", 64, 8},     {"power_cycles", 112, 8},
    {"power_on_hours", 128, 8}, {"unsafe_shutdowns", 144, 8}, {"media_errors", 160, 8},  {"error_log_entries", 176, 8}};

struct Answer {
  EFI_STATUS Status;
  EFI_NVM_EXPRESS_COMPLETION Cqe;
  UINT32 TransferLength;  // after the call
};

constexpr UINT32 SameAsCommand = 0xFFFFFFFE;

Answer Send(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* Nvme, UINT8 Queue, UINT8 Opcode, UINT32 Nsid, UINT32 Cdw10,
            UINT32 Cdw11, UINT32 Cdw12, UINT32 Bytes, UINT8 Flags = 0xFC, UINT32 NamespaceId = SameAsCommand,
            UINTN Offset = 0) {
  EFI_NVM_EXPRESS_COMMAND Cmd{};
  Cmd.Cdw0.Opcode = Opcode;
  Cmd.Flags = Flags;
  Cmd.Nsid = Nsid;
  Cmd.Cdw10 = Cdw10;
  Cmd.Cdw11 = Cdw11;
  Cmd.Cdw12 = Cdw12;
  Answer A{};
  EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET P{};
  P.CommandTimeout = TimeoutOf5s;
  P.TransferBuffer = Bytes != 0 ? Buffer + Offset : nullptr;
  P.TransferLength = Bytes;
  P.QueueType = Queue;
  P.NvmeCmd = &Cmd;
  P.NvmeCompletion = &A.Cqe;
  for (UINTN I = 0; I < Bytes; ++I) Buffer[Offset + I] = 0;
  A.Status = Nvme->PassThru(Nvme, NamespaceId == SameAsCommand ? Nsid : NamespaceId, &P, nullptr);
  A.TransferLength = P.TransferLength;
  return A;
}

// The EFI status, then status type and code, More and Do Not Retry.
void Outcome(const char* Key, const Answer& A) {
  const char* Names[] = {" efi=", " sct=", " sc=", " more=", " dnr="};
  const UINT64 Values[] = {A.Status & 0xFF, (A.Cqe.DW3 >> 25) & 7, (A.Cqe.DW3 >> 17) & 0xFF, (A.Cqe.DW3 >> 30) & 1,
                           A.Cqe.DW3 >> 31};
  Out("NVME ");
  Out(Key);
  for (int I = 0; I < 5; ++I) {
    Out(Names[I]);
    Hex(Values[I]);
  }
  Out("\r\n");
}

Answer Log(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* Nvme, UINT8 Lid, UINT32 Bytes, UINT32 Nsid = 0xFFFFFFFF) {
  return Send(Nvme, NVME_ADMIN_QUEUE, 0x02, Nsid, Lid | (Bytes / 4 - 1) << 16, 0, 0, Bytes);
}

void Health(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* Nvme, const char* When) {
  Out("NVME health ");
  Out(When);
  Out("\r\n");
  Outcome("health_log", Log(Nvme, 0x02, 512));
  for (const Field& F : HealthFields) Fact(F.Key, Le(Buffer + F.Offset, F.Bytes));
  Outcome("error_log", Log(Nvme, 0x01, 256));
  for (int E = 0; E < 4; ++E) {
    const UINT8* Entry = Buffer + 64 * E;
    if (Le(Entry, 8) == 0) continue;
    Fact("error_entry_count", Le(Entry, 8));
    Fact("error_entry_status", Le(Entry + 12, 2) >> 1);
    Fact("error_entry_lba", Le(Entry + 16, 8));
    Fact("error_entry_nsid", Le(Entry + 24, 4));
  }
}

void Probe(EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* Nvme) {
  Fact("attributes", Nvme->Mode->Attributes);
  Fact("io_align", Nvme->Mode->IoAlign);
  Fact("version", Nvme->Mode->NvmeVersion);
  UINT32 Listed = 0, Last = 0;
  for (UINT32 Id = 0xFFFFFFFF; Nvme->GetNextNamespace(Nvme, &Id) == EFI_SUCCESS; ++Listed) Last = Id;
  Fact("namespaces_listed", Listed);
  Fact("last_namespace_listed", Last);

  Outcome("identify_controller", Send(Nvme, NVME_ADMIN_QUEUE, 0x06, 0, 1, 0, 0, 4096));
  Text("serial", Buffer + 4, 20);
  Text("model", Buffer + 24, 40);
  Text("firmware", Buffer + 64, 8);
  for (const Field& F : ControllerFields) Fact(F.Key, Le(Buffer + F.Offset, F.Bytes));
  const UINT8 Mdts = Buffer[77];

  Outcome("identify_namespace", Send(Nvme, NVME_ADMIN_QUEUE, 0x06, 1, 0, 0, 0, 4096));
  const UINT64 Blocks = Le(Buffer, 8);
  const UINT8 Format = Buffer[26] & 0xF;
  Fact("nsze", Blocks);
  Fact("flbas", Buffer[26]);
  Fact("lbads", Buffer[128 + 4 * Format + 2]);
  Outcome("identify_active_list", Send(Nvme, NVME_ADMIN_QUEUE, 0x06, 0, 2, 0, 0, 4096));
  Fact("active_first", Le(Buffer, 4));
  Outcome("identify_cns_unflagged", Send(Nvme, NVME_ADMIN_QUEUE, 0x06, 0, 1, 0, 0, 4096, 0));
  Fact("unflagged_vid", Le(Buffer, 2));

  Health(Nvme, "before");
  Outcome("health_log_of_namespace_1", Log(Nvme, 0x02, 512, 1));
  Outcome("self_test_short", Send(Nvme, NVME_ADMIN_QUEUE, 0x14, 0xFFFFFFFF, 1, 0, 0, 0));
  Outcome("self_test_log", Log(Nvme, 0x06, 564));

  Outcome("read_lba_0", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, 0, 0, 0, 512));
  Outcome("read_bad_lba", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, ProbeBadLba, 0, 0, 512));
  Outcome("read_8_over_bad_lba", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, ProbeBadLba - 4, 0, 7, 4096));
  Outcome("verify_lba_0", Send(Nvme, NVME_IO_QUEUE, 0x0C, 1, 0, 0, 0, 0));
  Outcome("verify_bad_lba", Send(Nvme, NVME_IO_QUEUE, 0x0C, 1, ProbeBadLba, 0, 0, 0));
  Outcome("verify_65536_from_0", Send(Nvme, NVME_IO_QUEUE, 0x0C, 1, 0, 0, 0xFFFF, 0));
  Outcome("read_beyond_end", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, static_cast<UINT32>(Blocks), Blocks >> 32, 0, 512));
  Outcome("read_namespace_id_0", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, 0, 0, 0, 512, 0xFC, 0));
  Outcome("identify_namespace_id_0", Send(Nvme, NVME_ADMIN_QUEUE, 0x06, 1, 0, 0, 0, 4096, 0xFC, 0));
  Outcome("health_log_namespace_id_0",
          Send(Nvme, NVME_ADMIN_QUEUE, 0x02, 0xFFFFFFFF, 0x02 | 127u << 16, 0, 0, 512, 0xFC, 0));
  Outcome("read_misaligned_by_4", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, 0, 0, 0, 512, 0xFC, SameAsCommand, 4));
  Outcome("read_misaligned_by_8", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, 0, 0, 0, 512, 0xFC, SameAsCommand, 8));
  const UINT32 Limit = 4096u << Mdts;
  if (Mdts != 0 && Limit * 2 <= BufferPages * 4096) {
    Outcome("read_mdts", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, 0, 0, Limit / 512 - 1, Limit));
    const Answer Above = Send(Nvme, NVME_IO_QUEUE, 0x02, 1, 0, 0, Limit / 256 - 1, Limit * 2);
    Outcome("read_twice_mdts", Above);
    Fact("read_twice_mdts_length_after", Above.TransferLength);
    Outcome("log_twice_mdts",
            Send(Nvme, NVME_ADMIN_QUEUE, 0x02, 0xFFFFFFFF, 0x01 | (Limit / 2 - 1) << 16, 0, 0, Limit * 2));
  }
  Outcome("read_short_buffer", Send(Nvme, NVME_IO_QUEUE, 0x02, 1, 0, 0, 1, 512));
  Health(Nvme, "after");
}

EFI_STATUS Run(EFI_HANDLE, EFI_SYSTEM_TABLE* SystemTable) {
  ST = SystemTable;
  EFI_BOOT_SERVICES* BS = SystemTable->BootServices;
  BS->SetWatchdogTimer(0, 0, 0, nullptr);
  EFI_PHYSICAL_ADDRESS Address = 0;
  if (BS->AllocatePages(AllocateAnyPages, EfiLoaderData, BufferPages, &Address) != EFI_SUCCESS)
    return EFI_OUT_OF_RESOURCES;
  Buffer = reinterpret_cast<UINT8*>(Address);
  EFI_GUID Guid = EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL_GUID;
  UINTN Count = 0;
  EFI_HANDLE* Handles = nullptr;
  if (BS->LocateHandleBuffer(ByProtocol, &Guid, nullptr, &Count, &Handles) != EFI_SUCCESS) Count = 0;
  Fact("controllers", Count);
  if (Count == 0) {
    // The firmware connected only what it booted from: connect every
    // controller, as a program that tests drives does, and look again.
    UINTN All = 0;
    EFI_HANDLE* Every = nullptr;
    if (BS->LocateHandleBuffer(AllHandles, nullptr, nullptr, &All, &Every) == EFI_SUCCESS) {
      for (UINTN I = 0; I < All; ++I) BS->ConnectController(Every[I], nullptr, nullptr, TRUE);
      BS->FreePool(Every);
    }
    if (BS->LocateHandleBuffer(ByProtocol, &Guid, nullptr, &Count, &Handles) != EFI_SUCCESS) Count = 0;
    Fact("controllers_after_connect", Count);
  }
  for (UINTN I = 0; I < Count; ++I) {
    VOID* Found = nullptr;
    if (BS->HandleProtocol(Handles[I], &Guid, &Found) == EFI_SUCCESS)
      Probe(static_cast<EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL*>(Found));
  }
  Out("NVME PROBE DONE\r\n");
  return EFI_SUCCESS;
}

}  // namespace
}  // namespace nvmeprobe

extern "C" EFIAPI EFI_STATUS _ModuleEntryPoint(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  nvmeprobe::Run(ImageHandle, SystemTable);
  SystemTable->RuntimeServices->ResetSystem(EfiResetCold, EFI_SUCCESS, 0, nullptr);
  return EFI_SUCCESS;
}
