# Build helpers shared by every folder of the tree.
#
# Every subsystem is an OBJECT library: classes register themselves in static
# initialisers and are often reached only by name, so no object file may be
# dropped the way a static archive drops the ones nothing references.
#
# Each subsystem names the subsystems it stands on (DEPS), and a program names
# only the top layers it uses (LAYERS): it links those and everything below
# them, nothing else. So the relay carries no sheets and no toolkit, and a
# library that starts to reach above its layer fails to link in its own tests.
# The platform layer (vt_platform_posix or vt_platform_win32) is the bottom of
# every program and is added by the program helpers.
#
# Three flavours: the Linux build (native programs on POSIX, the client as a
# Winelib program), the sanitizer build (native only), and the Windows build
# (VANTOR_WINDOWS, MinGW-w64): there every program, console or GUI, is a
# Windows program on the Win32 platform layer.
if(VANTOR_WINDOWS)
    set(VANTOR_PLATFORM_LIBS vt_platform_win32)
else()
    set(VANTOR_PLATFORM_LIBS vt_platform_posix)
endif()
# What the Win32 platform layer and the toolkit's native side call.
set(VANTOR_WIN32_SYSTEM_LIBS user32 gdi32 comctl32 comdlg32 shell32 advapi32 kernel32)
if(VANTOR_WINDOWS)
    # Winsock; the Winelib flavour uses the POSIX sockets of its host.
    list(APPEND VANTOR_WIN32_SYSTEM_LIBS ws2_32)
endif()
set(VANTOR_WINELIB_LAUNCHER "${CMAKE_CURRENT_LIST_DIR}/winelib-cxx.sh")

# vt_add_subsystem(<name> [DIR <dir>] [EXCLUDE <file>...] [DEPS <name>...])
#
# Builds the object library vt_<name> from <dir>/*.cpp (default: the current
# source folder). The glob is re-checked at every build, so adding a .cpp
# needs no CMake edit. DEPS are the subsystems (by name) this one stands on.
function(vt_add_subsystem name)
    cmake_parse_arguments(ARG "" "DIR" "EXCLUDE;DEPS" ${ARGN})
    if(NOT ARG_DIR)
        set(ARG_DIR ${CMAKE_CURRENT_SOURCE_DIR})
    endif()
    cmake_path(ABSOLUTE_PATH ARG_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    file(GLOB sources CONFIGURE_DEPENDS ${ARG_DIR}/*.cpp)
    foreach(excluded IN LISTS ARG_EXCLUDE)
        list(REMOVE_ITEM sources ${ARG_DIR}/${excluded})
    endforeach()
    foreach(dep IN LISTS ARG_DEPS)
        if(NOT TARGET vt_${dep})
            message(FATAL_ERROR "subsystem ${name}: ${dep} must be defined first (it is a lower layer)")
        endif()
    endforeach()
    if(sources)
        add_library(vt_${name} OBJECT ${sources})
    else()
        # A layer without sources yet keeps its place in the order.
        add_library(vt_${name} INTERFACE)
    endif()
    set_property(GLOBAL PROPERTY VANTOR_DEPS_${name} ${ARG_DEPS})
    set_property(GLOBAL APPEND PROPERTY VANTOR_SUBSYSTEMS ${name})
endfunction()

# Appends <name> to `done` after everything it stands on (depth first).
function(_vt_visit_layer name)
    if(name IN_LIST done)
        return()
    endif()
    get_property(deps GLOBAL PROPERTY VANTOR_DEPS_${name})
    foreach(dep IN LISTS deps)
        _vt_visit_layer(${dep})
    endforeach()
    list(APPEND done ${name})
    set(done ${done} PARENT_SCOPE)
endfunction()

# vt_layer_libs(<out-var> <name>...): the libraries of the named subsystems
# and of everything below them, lowest first.
function(vt_layer_libs out)
    set(done)
    foreach(name IN LISTS ARGN)
        if(NOT TARGET vt_${name})
            message(FATAL_ERROR "unknown layer '${name}'")
        endif()
        _vt_visit_layer(${name})
    endforeach()
    set(libs)
    foreach(name IN LISTS done)
        get_target_property(type vt_${name} TYPE)
        if(NOT type STREQUAL "INTERFACE_LIBRARY")
            list(APPEND libs vt_${name})
        endif()
    endforeach()
    set(${out} ${libs} PARENT_SCOPE)
endfunction()

# vt_add_native_program(<name> SOURCES <file>... LAYERS <name>... [LIBS <lib>...])
#
# A console program without window code (vantor-relay, vantor-admin, tests,
# benchmarks), linked with the named layers, everything below them and the
# platform layer: on Linux g++ and the POSIX layer, in the Windows flavour a
# console .exe on the Win32 layer.
function(vt_add_native_program name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LAYERS;LIBS" ${ARGN})
    vt_layer_libs(libs ${ARG_LAYERS})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} ${libs} ${VANTOR_PLATFORM_LIBS})
    if(VANTOR_WINDOWS)
        target_link_libraries(${name} PRIVATE ${VANTOR_WIN32_SYSTEM_LIBS})
        target_link_options(${name} PRIVATE -mconsole)
    endif()
endfunction()

# vt_add_win32_program(<name> SOURCES <file>... LAYERS <name>... [LIBS <lib>...] [CONSOLE] [RESOURCES <file.rc>...])
#
# A program that calls Win32 beyond the platform layer (the client, GUI
# tests), GUI unless CONSOLE. The property VANTOR_PROGRAM holds the file to
# hand to Wine. RESOURCES (icons, manifest) go into the Windows flavour's
# .exe; Winelib programs carry none.
#
# In the Windows flavour MinGW compiles and links everything; the program is
# <name>.exe.
#
# On Linux it is a Win32 program for Wine (Winelib). The given sources and the subsystem
# libraries are compiled by plain g++; only the platform layer and the
# toolkit's native side (vt_platform_win32, vt_toolkit_win32) are compiled by
# wineg++, and wineg++ links the whole. The native side of the toolkit comes
# with the toolkit layer.
# wineg++ -o <name>.exe writes <name>.exe.so (the program, run it as
# `wine <dir>/<name>.exe.so`) and <name>.exe (a shell launcher that does the
# same); VANTOR_PROGRAM is the .exe.so.
function(vt_add_win32_program name)
    if(NOT VANTOR_WINELIB AND NOT VANTOR_WINDOWS)
        message(FATAL_ERROR "vt_add_win32_program(${name}) needs VANTOR_WINELIB=ON or the Windows flavour")
    endif()
    cmake_parse_arguments(ARG "CONSOLE" "" "SOURCES;LAYERS;LIBS;RESOURCES" ${ARGN})
    vt_layer_libs(libs ${ARG_LAYERS})
    if(vt_toolkit IN_LIST libs AND TARGET vt_toolkit_win32)
        list(APPEND libs vt_toolkit_win32)
    endif()
    if(VANTOR_WINDOWS)
        add_executable(${name} ${ARG_SOURCES} ${ARG_RESOURCES})
        target_link_libraries(${name} PRIVATE ${ARG_LIBS} ${libs} vt_platform_win32 ${VANTOR_WIN32_SYSTEM_LIBS})
        if(ARG_CONSOLE)
            target_link_options(${name} PRIVATE -mconsole)
        else()
            target_link_options(${name} PRIVATE -mwindows)
        endif()
        set_target_properties(${name} PROPERTIES VANTOR_PROGRAM "$<TARGET_FILE:${name}>")
        return()
    endif()
    add_executable(${name} ${ARG_SOURCES})
    list(TRANSFORM VANTOR_WIN32_SYSTEM_LIBS PREPEND -l OUTPUT_VARIABLE system)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} ${libs} vt_platform_win32 ${system})
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
        VANTOR_PROGRAM "$<TARGET_FILE_DIR:${name}>/${name}.exe.so"
        ADDITIONAL_CLEAN_FILES "$<TARGET_FILE_DIR:${name}>/${name}.exe.so")
endfunction()

# vt_add_folder(<dir>): adds the folder's own CMakeLists.txt, with its
# binary folder at the same place in the build tree.
function(vt_add_folder dir)
    add_subdirectory(${PROJECT_SOURCE_DIR}/${dir} ${PROJECT_BINARY_DIR}/${dir})
endfunction()
