# Compiler options for every source file of the project.
add_library(kelvane_options INTERFACE)
target_compile_options(kelvane_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wformat=2 -Wundef -Werror
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    # g++ treats the enumerators of an enum class as shadowing outer names.
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>)
# In every build, so that reading an empty optional fails a test, and not only the released program.
target_compile_definitions(kelvane_options INTERFACE _GLIBCXX_ASSERTIONS)
if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    target_compile_definitions(kelvane_options INTERFACE _FORTIFY_SOURCE=2)
    # Sources are compiled several at once, and the linker takes or leaves sections: without one for each function a
    # program would contain all functions of a group of which it calls one.
    target_compile_options(kelvane_options INTERFACE -fstack-protector-strong -ffunction-sections -fdata-sections)
    add_link_options(-Wl,--gc-sections)
endif()

# The version that --version prints.
add_library(kelvane_version INTERFACE)
target_compile_definitions(kelvane_version INTERFACE KELVANE_VERSION="${PROJECT_VERSION}")

if(KELVANE_SANITIZE)
    add_compile_options(-fsanitize=${KELVANE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KELVANE_SANITIZE})
endif()
if(KELVANE_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
