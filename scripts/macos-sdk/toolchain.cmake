# Configures the project as for macOS, for a compile-only check on Linux:
# clang aims at macOS, and the headers are the stand-ins beside this file
# over libc++ and the C library's POSIX part.  Nothing built with it links.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_OSX_ARCHITECTURES x86_64)
set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0)
set(CMAKE_OSX_SYSROOT "${CMAKE_CURRENT_LIST_DIR}")
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-apple-macos11)
set(CMAKE_CXX_COMPILER_TARGET x86_64-apple-macos11)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

execute_process(COMMAND clang++ -print-resource-dir OUTPUT_VARIABLE clang_resource_dir OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND clang++ -print-multiarch OUTPUT_VARIABLE host_multiarch OUTPUT_STRIP_TRAILING_WHITESPACE)
# libc++ lies beside the clang it belongs to: <llvm>/include/c++/v1.
get_filename_component(llvm_root "${clang_resource_dir}/../../.." ABSOLUTE)
# Clang names nullability qualifiers __nonnull and __nullable for Darwin,
# which the C library's headers use as macros of their own.  _DEFAULT_SOURCE
# shows the POSIX and BSD names that macOS has and hides the GNU ones.
set(macos_headers
  "-nostdinc -U__nonnull -U__nullable -D_DEFAULT_SOURCE"
  "-isystem ${CMAKE_CURRENT_LIST_DIR}/include"
  "-isystem ${llvm_root}/include/c++/v1"
  "-isystem ${clang_resource_dir}/include"
  "-isystem /usr/include/${host_multiarch}"
  "-isystem /usr/include")
string(JOIN " " macos_headers ${macos_headers})
set(CMAKE_C_FLAGS_INIT "${macos_headers}")
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++ ${macos_headers}")

# The libraries are only named, never linked: the host's libcrypto stands
# in for the one the bundle carries.
set(OPENSSL_INCLUDE_DIR /usr/include CACHE PATH "")
set(OPENSSL_CRYPTO_LIBRARY /usr/lib/${host_multiarch}/libcrypto.a CACHE FILEPATH "")

# macFUSE's pkg-config file, and no other.
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_CURRENT_LIST_DIR}/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
