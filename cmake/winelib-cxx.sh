#!/bin/sh
# Compiler and link launcher for the Winelib parts of the build.
#
# CMake runs "<this script> <wineg++> <c++> <arguments...>" for every source
# of vt_platform_win32 (CXX_COMPILER_LAUNCHER) and for the link of every
# Winelib program (RULE_LAUNCH_LINK). We drop CMake's compiler and run the
# same arguments through wineg++, so flags, dependency files and object lists
# stay CMake's business.
set -e
winegxx=$1
shift 2
exec "$winegxx" "$@"
