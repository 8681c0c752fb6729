# Build helpers shared by every folder of the tree.
#
# Every subsystem is an OBJECT library: classes register themselves in static
# initialisers and are often reached only by name, so no object file may be
# dropped the way a static archive drops the ones nothing references.
# Programs and tests link all subsystem libraries, in the order defined.

set(VANTOR_WINELIB_LAUNCHER "${CMAKE_CURRENT_LIST_DIR}/winelib-cxx.sh")

# vt_add_subsystem(<name> [DIR <dir>] [EXCLUDE <file>...] [CLIENT_ONLY])
#
# Builds the object library vt_<name> from <dir>/*.cpp (default: the current
# source folder). The glob is re-checked at every build, so adding a .cpp
# needs no CMake edit. A folder without sources defines no library.
# CLIENT_ONLY libraries go into Winelib programs only, not into native ones.
function(vt_add_subsystem name)
    cmake_parse_arguments(ARG "CLIENT_ONLY" "DIR" "EXCLUDE" ${ARGN})
    if(NOT ARG_DIR)
        set(ARG_DIR ${CMAKE_CURRENT_SOURCE_DIR})
    endif()
    cmake_path(ABSOLUTE_PATH ARG_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    file(GLOB sources CONFIGURE_DEPENDS ${ARG_DIR}/*.cpp)
    foreach(excluded IN LISTS ARG_EXCLUDE)
        list(REMOVE_ITEM sources ${ARG_DIR}/${excluded})
    endforeach()
    if(NOT sources)
        return()
    endif()
    add_library(vt_${name} OBJECT ${sources})
    if(ARG_CLIENT_ONLY)
        set_property(GLOBAL APPEND PROPERTY VANTOR_CLIENT_LIBS vt_${name})
    else()
        set_property(GLOBAL APPEND PROPERTY VANTOR_NATIVE_LIBS vt_${name})
    endif()
endfunction()

# vt_native_libs(<out-var>): the subsystem libraries for a native program.
function(vt_native_libs out)
    get_property(libs GLOBAL PROPERTY VANTOR_NATIVE_LIBS)
    set(${out} ${libs} PARENT_SCOPE)
endfunction()

# vt_add_native_program(<name> SOURCES <file>... [LIBS <lib>...])
#
# A native Linux program (vantor-relay, vantor-admin, tools): g++ compiles
# and links, with every subsystem library and the POSIX platform layer.
function(vt_add_native_program name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    vt_native_libs(libs)
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} ${libs} vt_platform_posix)
endfunction()

# vt_add_winelib_executable(<name> SOURCES <file>... [LIBS <lib>...] [CONSOLE])
#
# A Win32 program for Wine on Linux. The given sources and all subsystem
# libraries are compiled by plain g++; only vt_platform_win32 (the platform
# layer and toolkit/win32) is compiled by wineg++, and wineg++ links the whole.
# wineg++ -o <name>.exe writes <name>.exe.so (the program, run it as
# `wine <dir>/<name>.exe.so`) and <name>.exe (a shell launcher that does the
# same). The property VANTOR_WINELIB_SO holds the path of the .exe.so.
function(vt_add_winelib_executable name)
    if(NOT VANTOR_WINELIB)
        message(FATAL_ERROR "vt_add_winelib_executable(${name}) needs VANTOR_WINELIB=ON")
    endif()
    cmake_parse_arguments(ARG "CONSOLE" "" "SOURCES;LIBS" ${ARGN})
    vt_native_libs(native)
    get_property(client GLOBAL PROPERTY VANTOR_CLIENT_LIBS)
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} ${native} ${client} vt_platform_win32
        -luser32 -lgdi32 -lcomctl32 -lcomdlg32 -lshell32 -ladvapi32 -lkernel32)
    # wineg++ links a shared object, so the program's own sources need -fPIC
    # (CMake would give an executable's sources -fPIE).
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_compile_options(${name} PRIVATE -fPIC)
    if(ARG_CONSOLE)
        target_link_options(${name} PRIVATE -mconsole)
    else()
        target_link_options(${name} PRIVATE -mwindows)
    endif()
    # The launcher turns CMake's "c++ ... -o <name>.exe" into the same line
    # run by wineg++ (see winelib-cxx.sh).
    set_target_properties(${name} PROPERTIES
        OUTPUT_NAME ${name}.exe
        SUFFIX ""
        RULE_LAUNCH_LINK "${VANTOR_WINELIB_LAUNCHER} ${VANTOR_WINEGXX}"
        VANTOR_WINELIB_SO "$<TARGET_FILE_DIR:${name}>/${name}.exe.so"
        ADDITIONAL_CLEAN_FILES "$<TARGET_FILE_DIR:${name}>/${name}.exe.so")
endfunction()

# vt_add_folder(<dir>): a folder with its own CMakeLists.txt is added as a
# subdirectory. A folder without one still builds: a library folder becomes
# vt_<dir> from its sources, relay/ and admin/ become their programs.
function(vt_add_folder dir)
    set(path ${PROJECT_SOURCE_DIR}/${dir})
    if(EXISTS ${path}/CMakeLists.txt)
        add_subdirectory(${path} ${PROJECT_BINARY_DIR}/${dir})
    elseif(dir STREQUAL "relay" OR dir STREQUAL "admin")
        file(GLOB sources CONFIGURE_DEPENDS ${path}/*.cpp)
        if(sources)
            vt_add_native_program(vantor-${dir} SOURCES ${sources})
        endif()
    elseif(dir IN_LIST VANTOR_LIBRARY_DIRS)
        vt_add_subsystem(${dir} DIR ${dir})
    endif()
endfunction()
