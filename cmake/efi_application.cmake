# Builds UEFI applications (PE32+, subsystem EFI application) from C++ sources
# with clang++ targeting x86_64 Windows and lld-link, next to the host build.
find_program(TARVIK_EFI_CXX NAMES clang++ clang++-14 REQUIRED)
find_program(TARVIK_EFI_LINK NAMES lld-link lld-link-14 REQUIRED)

set(TARVIK_EFI_CXX_FLAGS
  -std=c++20 -target x86_64-unknown-windows
  -ffreestanding -fno-exceptions -fno-rtti -fno-stack-protector
  -mno-red-zone -mno-stack-arg-probe -nostdlibinc
  -O2 -g0
  # Physical memory starts at address 0: the memory test may claim and test
  # the page there, so a pointer to it must stay a plain access.
  -fno-delete-null-pointer-checks
  # Nothing runs before the entry point: static objects must be constant-initialised.
  -Wglobal-constructors -Wexit-time-destructors)

# Compiles SOURCES (paths relative to the source tree) into objects under
# efi/ and stores their paths in OUT.
function(add_efi_objects out)
  cmake_parse_arguments(EFI "" "" "SOURCES;WARNINGS" ${ARGN})
  set(objects)
  foreach(src ${EFI_SOURCES})
    string(REPLACE "/" "_" flat ${src})
    set(obj ${CMAKE_BINARY_DIR}/efi/${flat}.obj)
    add_custom_command(
      OUTPUT ${obj}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/efi
      COMMAND ${TARVIK_EFI_CXX} ${TARVIK_EFI_CXX_FLAGS} ${EFI_WARNINGS}
              -I${CMAKE_SOURCE_DIR} -MD -MF ${obj}.d
              -c ${CMAKE_SOURCE_DIR}/${src} -o ${obj}
      DEPENDS ${CMAKE_SOURCE_DIR}/${src}
      DEPFILE ${obj}.d
      COMMENT "EFI: compiling ${src}"
      VERBATIM)
    list(APPEND objects ${obj})
  endforeach()
  set(${out} ${objects} PARENT_SCOPE)
endfunction()

# Links NAME.efi from OBJECTS (made by add_efi_objects and built by the
# target OBJECT_TARGET, so two images sharing objects never compile them
# twice) and its own SOURCES.
function(add_efi_application name)
  cmake_parse_arguments(EFI "" "OBJECT_TARGET" "OBJECTS;SOURCES;WARNINGS" ${ARGN})
  add_efi_objects(own SOURCES ${EFI_SOURCES} WARNINGS ${EFI_WARNINGS})
  set(out ${CMAKE_BINARY_DIR}/${name}.efi)
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${TARVIK_EFI_LINK} /nologo /subsystem:efi_application /entry:_ModuleEntryPoint
            /nodefaultlib /machine:x64 /out:${out} ${EFI_OBJECTS} ${own}
    DEPENDS ${EFI_OBJECTS} ${own}
    COMMENT "EFI: linking ${name}.efi"
    VERBATIM)
  add_custom_target(${name} ALL DEPENDS ${out})
  if(EFI_OBJECT_TARGET)
    add_dependencies(${name} ${EFI_OBJECT_TARGET})
  endif()
endfunction()
