// Appends the built log to \Log\Log.log on a volume: 8-bit text (the low
// byte of each character), one line feed per line, empty lines included;
// then its results line to \Log\Results.jsonl (log/results_file.h).
#include "core/file_handle.h"
#include "core/pool.h"
#include "log/line_store.h"
#include "log/log_operations.h"
#include "log/results_file.h"

namespace tarvik {
namespace {

constexpr UINT64 OpenReadWrite = EFI_FILE_MODE_READ | EFI_FILE_MODE_WRITE;
constexpr UINT64 OpenOrCreate = OpenReadWrite | EFI_FILE_MODE_CREATE;
constexpr UINTN FileInfoBytes = 1000;

UINT64 Code(SaveLogCode Result) { return static_cast<UINT64>(Result); }

// Opens Name in Parent for reading and writing, creating it with Attributes
// when it does not exist yet.
EFI_STATUS OpenOrCreateIn(FileHandle& Parent, const CHAR16* Name, UINT64 Attributes, FileHandle& Opened) {
  CHAR16* MutableName = const_cast<CHAR16*>(Name);
  if (!EFI_ERROR(Parent->Open(Parent.get(), Opened.out(), MutableName, OpenReadWrite, 0))) return EFI_SUCCESS;
  return Parent->Open(Parent.get(), Opened.out(), MutableName, OpenOrCreate, Attributes);
}

// The whole log as the bytes of the file, so that one write either appends
// all of it or, when the volume refuses, nothing.
EFI_STATUS LogAsBytes(PoolPtr<UINT8>& Bytes, UINTN& Size) {
  const UINT64 Lines = LogLineCount();
  EFI_STATUS Status = Bytes.Allocate(Lines * (LogLineChars + 1) + 1);
  if (EFI_ERROR(Status)) return Status;
  Size = 0;
  for (UINT64 I = 0; I < Lines; ++I) {
    const CHAR16* Line = LogLine(I);
    for (UINTN C = 0; C < LogLineChars && Line[C] != 0; ++C) Bytes.get()[Size++] = static_cast<UINT8>(Line[C]);
    Bytes.get()[Size++] = 0x0A;
  }
  return EFI_SUCCESS;
}

// Opens Name in Directory for appending: the position at its end, OldSize
// its length before.
SaveLogCode OpenForAppend(FileHandle& Directory, const CHAR16* Name, FileHandle& File, UINT64& OldSize) {
  Directory->SetPosition(Directory.get(), 0);
  if (EFI_ERROR(OpenOrCreateIn(Directory, Name, EFI_FILE_ARCHIVE, File))) return SaveLogCode::FileNotOpened;
  PoolPtr<EFI_FILE_INFO> Info;
  if (EFI_ERROR(Info.Allocate(FileInfoBytes))) return SaveLogCode::InfoNotRead;
  EFI_GUID InfoGuid = EFI_FILE_INFO_ID;
  UINTN InfoSize = FileInfoBytes;
  if (EFI_ERROR(File->GetInfo(File.get(), &InfoGuid, &InfoSize, Info.get()))) return SaveLogCode::InfoNotRead;
  OldSize = Info->FileSize;
  // New text goes after what the file already holds.
  if (EFI_ERROR(File->SetPosition(File.get(), OldSize))) return SaveLogCode::EndNotReached;
  return SaveLogCode::Saved;
}

// One write of all Size bytes; a refused one leaves the file as it was.
BOOLEAN AppendAll(FileHandle& File, UINT8* Bytes, UINTN Size) {
  UINTN Written = Size;
  return Size == 0 || (!EFI_ERROR(File->Write(File.get(), &Written, Bytes)) && Written == Size);
}

// Cuts File back to OldSize: what a save appended is taken back when the
// other file of the save could not follow it.
VOID TruncateTo(FileHandle& File, UINT64 OldSize) {
  PoolPtr<EFI_FILE_INFO> Info;
  if (EFI_ERROR(Info.Allocate(FileInfoBytes))) return;
  EFI_GUID InfoGuid = EFI_FILE_INFO_ID;
  UINTN InfoSize = FileInfoBytes;
  if (EFI_ERROR(File->GetInfo(File.get(), &InfoGuid, &InfoSize, Info.get()))) return;
  Info->FileSize = OldSize;
  File->SetInfo(File.get(), &InfoGuid, InfoSize, Info.get());
}

}  // namespace

EFIAPI UINT64 SaveLog(EFI_HANDLE DeviceHandle) {
  EFI_GUID FileSystemGuid = EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_GUID;
  VOID* Interface = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(DeviceHandle, &FileSystemGuid, &Interface)) || Interface == nullptr) {
    return Code(SaveLogCode::NoFileSystem);
  }
  auto* FileSystem = static_cast<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL*>(Interface);

  FileHandle Root;
  if (EFI_ERROR(FileSystem->OpenVolume(FileSystem, Root.out()))) return Code(SaveLogCode::VolumeNotOpened);
  if (EFI_ERROR(Root->SetPosition(Root.get(), 0))) return Code(SaveLogCode::RootNotRewound);

  FileHandle Directory;
  if (EFI_ERROR(OpenOrCreateIn(Root, u"\\Log", EFI_FILE_DIRECTORY, Directory))) {
    return Code(SaveLogCode::FileNotOpened);
  }
  Root.reset();
  FileHandle Log;
  UINT64 LogSize = 0;
  SaveLogCode Result = OpenForAppend(Directory, u"Log.log", Log, LogSize);
  if (Result != SaveLogCode::Saved) return Code(Result);

  PoolPtr<UINT8> Bytes, Results;
  UINTN Size = 0, ResultsSize = 0;
  if (EFI_ERROR(LogAsBytes(Bytes, Size)) || EFI_ERROR(ResultsLineBytes(Results, ResultsSize))) {
    return Code(SaveLogCode::WriteFailed);
  }
  if (!AppendAll(Log, Bytes.get(), Size)) return Code(SaveLogCode::WriteFailed);
  if (ResultsSize == 0) return Code(SaveLogCode::Saved);

  FileHandle ResultsFile;
  UINT64 ResultsOldSize = 0;
  Result = OpenForAppend(Directory, u"Results.jsonl", ResultsFile, ResultsOldSize);
  if (Result == SaveLogCode::Saved && !AppendAll(ResultsFile, Results.get(), ResultsSize)) {
    Result = SaveLogCode::WriteFailed;
  }
  if (Result != SaveLogCode::Saved) TruncateTo(Log, LogSize);
  return Code(Result);
}

}  // namespace tarvik
