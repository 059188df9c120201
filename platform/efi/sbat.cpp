// The image's SBAT metadata: a section named .sbat holding CSV text, which
// shim and later boot loaders read to refuse images whose generation a
// revocation has passed. The first line names the format; the second says
// which generation of Tarvik this image is. Raise the generation when a
// security fix must keep every earlier image from booting.
//
// Only the image's own linker sees this: nothing in the application reads it.
extern const char TarvikSbat[];
__attribute__((section(".sbat"), used)) const char TarvikSbat[] =
    "sbat,1,SBAT Version,sbat,1,https://github.com/rhboot/shim/blob/main/SBAT.md\n"
    "tarvik,1,Tarvik,tarvik,1,https://tarvik.invalid/\n";
