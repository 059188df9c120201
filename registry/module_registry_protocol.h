// The test registry: the list of test modules the interface offers, in the
// order they registered (memory first, storage second).
#pragma once

#include "core/service_record.h"
#include "registry/module_protocol.h"

namespace tarvik {

#define TEST_COLLECTION_PROTOCOL_GUID \
  EFI_GUID { 0x600E0149, 0x1606, 0x44BF, { 0xA7, 0x0C, 0x16, 0x2A, 0xF0, 0xA2, 0xD6, 0xC6 } }
inline constexpr EFI_GUID TestCollectionProtocolGuid = TEST_COLLECTION_PROTOCOL_GUID;

// How many modules the registry holds at most.
inline constexpr UINT64 TestCollectionCapacity = 100;

typedef UINT64(EFIAPI* TEST_COLLECTION_GET_TEST_COUNT)();
typedef EFI_STATUS(EFIAPI* TEST_COLLECTION_GET_TEST)(UINT64 Index, TestModuleProtocol** Module);
typedef EFI_STATUS(EFIAPI* TEST_COLLECTION_ADD_TEST)(TestModuleProtocol* Module);
typedef EFI_STATUS(EFIAPI* TEST_COLLECTION_REMOVE_LAST_TEST)(TestModuleProtocol** Module);

struct TestCollectionProtocol {
  ServiceRecordHeader Header;
  TEST_COLLECTION_GET_TEST_COUNT GetTestCount;
  TEST_COLLECTION_GET_TEST GetTest;
  TEST_COLLECTION_ADD_TEST AddTest;
  TEST_COLLECTION_REMOVE_LAST_TEST RemoveLastTest;
};
static_assert(__builtin_offsetof(TestCollectionProtocol, GetTestCount) == 5 * 8);
static_assert(__builtin_offsetof(TestCollectionProtocol, GetTest) == 6 * 8);
static_assert(__builtin_offsetof(TestCollectionProtocol, AddTest) == 7 * 8);
static_assert(__builtin_offsetof(TestCollectionProtocol, RemoveLastTest) == 8 * 8);
static_assert(sizeof(TestCollectionProtocol) == 9 * 8);

EFI_STATUS InstallTestCollection(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

}  // namespace tarvik
