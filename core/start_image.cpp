#include "core/start_image.h"

#include "core/globals.h"
#include "core/pool.h"
#include "core/wide_string.h"

namespace tarvik {
namespace {

UINTN DevicePathSize(const EFI_DEVICE_PATH_PROTOCOL* Path) {
  // Everything before the end node; a node shorter than its header ends the walk.
  UINTN Size = 0;
  for (const EFI_DEVICE_PATH_PROTOCOL* Node = Path; !IsDevicePathEnd(Node); Node = NextDevicePathNode(Node)) {
    UINTN Length = DevicePathNodeLength(Node);
    if (Length < sizeof(EFI_DEVICE_PATH_PROTOCOL)) break;
    Size += Length;
  }
  return Size;
}

VOID SetNodeHeader(EFI_DEVICE_PATH_PROTOCOL* Node, UINT8 Type, UINT8 SubType, UINTN Length) {
  Node->Type = Type;
  Node->SubType = SubType;
  Node->Length[0] = (UINT8)(Length & 0xFF);
  Node->Length[1] = (UINT8)(Length >> 8);
}

// The device's path, then a media file-path node holding FileName, then the end node.
EFI_STATUS BuildFilePath(const EFI_DEVICE_PATH_PROTOCOL* Device, const CHAR16* FileName,
                         PoolPtr<EFI_DEVICE_PATH_PROTOCOL>& Path) {
  UINTN Prefix = Device != nullptr ? DevicePathSize(Device) : 0;
  UINTN NameBytes = (StrLen(FileName) + 1) * sizeof(CHAR16);
  UINTN FileNode = sizeof(EFI_DEVICE_PATH_PROTOCOL) + NameBytes;
  if (FileNode > 0xFFFF) return EFI_INVALID_PARAMETER;
  if (EFI_ERROR(Path.Allocate(Prefix + FileNode + sizeof(EFI_DEVICE_PATH_PROTOCOL)))) return EFI_OUT_OF_RESOURCES;

  UINT8* Out = reinterpret_cast<UINT8*>(Path.get());
  const UINT8* In = reinterpret_cast<const UINT8*>(Device);
  for (UINTN I = 0; I < Prefix; ++I) Out[I] = In[I];
  Out += Prefix;
  SetNodeHeader(reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL*>(Out), MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP, FileNode);
  const UINT8* Name = reinterpret_cast<const UINT8*>(FileName);
  for (UINTN I = 0; I < NameBytes; ++I) Out[sizeof(EFI_DEVICE_PATH_PROTOCOL) + I] = Name[I];
  Out += FileNode;
  SetNodeHeader(reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL*>(Out), END_DEVICE_PATH_TYPE,
                END_ENTIRE_DEVICE_PATH_SUBTYPE, sizeof(EFI_DEVICE_PATH_PROTOCOL));
  return EFI_SUCCESS;
}

}  // namespace

EFIAPI EFI_STATUS StartImageFromFile(EFI_HANDLE ImageHandle, const CHAR16* FileName) {
  if (FileName == nullptr) return EFI_ABORTED;
  EFI_GUID LoadedImageGuid = EFI_LOADED_IMAGE_PROTOCOL_GUID;
  EFI_LOADED_IMAGE_PROTOCOL* LoadedImage = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(ImageHandle, &LoadedImageGuid, reinterpret_cast<VOID**>(&LoadedImage))))
    return EFI_ABORTED;
  EFI_GUID DevicePathGuid = EFI_DEVICE_PATH_PROTOCOL_GUID;
  EFI_DEVICE_PATH_PROTOCOL* Device = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(LoadedImage->DeviceHandle, &DevicePathGuid, reinterpret_cast<VOID**>(&Device))))
    return EFI_ABORTED;

  PoolPtr<EFI_DEVICE_PATH_PROTOCOL> Path;
  if (EFI_ERROR(BuildFilePath(Device, FileName, Path))) return EFI_ABORTED;

  EFI_HANDLE NewImage = nullptr;
  EFI_STATUS Status = gBS->LoadImage(TRUE, ImageHandle, Path.get(), nullptr, 0, &NewImage);
  Path.reset();
  if (EFI_ERROR(Status)) return EFI_ABORTED;
  if (gBS->StartImage(NewImage, nullptr, nullptr) != EFI_SUCCESS) return EFI_ABORTED;
  return EFI_SUCCESS;
}

}  // namespace tarvik
