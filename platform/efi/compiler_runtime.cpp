// The few routines the compiler may call on its own (block copies and fills
// of structures) when there is no C library underneath.
//
// Written with string instructions so that the compiler cannot turn the
// loops back into calls to themselves.
typedef __SIZE_TYPE__ size_t;

extern "C" {

void* memcpy(void* Destination, const void* Source, size_t Count) {
  void* D = Destination;
  __asm__ volatile("rep movsb" : "+D"(D), "+S"(Source), "+c"(Count) : : "memory");
  return Destination;
}

void* memmove(void* Destination, const void* Source, size_t Count) {
  unsigned char* D = static_cast<unsigned char*>(Destination);
  const unsigned char* S = static_cast<const unsigned char*>(Source);
  if (D <= S || D >= S + Count) return memcpy(Destination, Source, Count);
  // Overlapping with the destination above the source: copy backwards.
  D += Count - 1;
  S += Count - 1;
  __asm__ volatile("std\n\trep movsb\n\tcld" : "+D"(D), "+S"(S), "+c"(Count) : : "memory");
  return Destination;
}

void* memset(void* Destination, int Value, size_t Count) {
  void* D = Destination;
  __asm__ volatile("rep stosb" : "+D"(D), "+c"(Count) : "a"(Value) : "memory");
  return Destination;
}

int memcmp(const void* First, const void* Second, size_t Count) {
  const unsigned char* A = static_cast<const unsigned char*>(First);
  const unsigned char* B = static_cast<const unsigned char*>(Second);
  for (size_t I = 0; I < Count; ++I) {
    if (A[I] != B[I]) return A[I] - B[I];
  }
  return 0;
}

}  // extern "C"
