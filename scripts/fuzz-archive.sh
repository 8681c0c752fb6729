#!/usr/bin/env bash
# Builds the archive reader's libFuzzer target with clang-14 (libFuzzer,
# AddressSanitizer, UndefinedBehaviorSanitizer) into build-fuzz/ and runs
# it on build-fuzz/archive-corpus/, seeded with a few valid archives.
# Arguments go to libFuzzer, for example:
#
#   bash scripts/fuzz-archive.sh -max_total_time=3600 -jobs=2 -workers=2
#
# Without arguments it runs for 60 seconds. A crash leaves its input as
# build-fuzz/crash-*; replay it with build-fuzz/archive_fuzzer <file>.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

out=build-fuzz
mkdir -p "$out/archive-corpus"
# The reader and what it builds on: the foundation, the storage classes and
# the POSIX platform layer. Classes register in static initialisers, so
# every object file is linked.
sources=(foundation/*.cpp foundation/platform/PlatformPosix.cpp storage/*.cpp fuzz/archive_fuzzer.cpp)
if [[ ! -x "$out/archive_fuzzer" || -n "$(find "${sources[@]}" foundation/*.h storage/*.h -newer "$out/archive_fuzzer" | head -1)" ]]; then
    echo "fuzz-archive: building $out/archive_fuzzer"
    clang++-14 -std=c++17 -O1 -g -fno-omit-frame-pointer -fsanitize=fuzzer,address,undefined \
        -fno-sanitize-recover=all -I. "${sources[@]}" -lpthread -o "$out/archive_fuzzer"
fi

# First entries: the number 3, the string abc, the shared null, an array holding abc.
corpus="$out/archive-corpus"
add_to_corpus() { printf "$2" > "$corpus/start-$1"; }
number3='\x09\x00\x00\x00NSNumber\x00\x08\x00\x00\x00\x00\x00\x00\x00\x00\x00\x08\x40'
abc='\x09\x00\x00\x00NSString\x00\x04\x00\x00\x00abc\x00'
add_to_corpus number "$number3"
add_to_corpus string "$abc"
add_to_corpus null '\x07\x00\x00\x00NSNull\x00\x09\x00\x00\x00NSNumber\x00\x08\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00'
add_to_corpus array "\x0f\x00\x00\x00NSMutableArray\x00\x09\x00\x00\x00NSNumber\x00\x08\x00\x00\x00\x00\x00\x00\x00\x00\x00\xf0\x3f$abc"
add_to_corpus dictionary "\x14\x00\x00\x00NSMutableDictionary\x00\x09\x00\x00\x00NSNumber\x00\x08\x00\x00\x00\x00\x00\x00\x00\x00\x00\xf0\x3f$abc$number3"

if [[ $# -eq 0 ]]; then
    set -- -max_total_time=60
fi
# The reader logs a line per refused archive on standard output.
cd "$out"
exec ./archive_fuzzer -max_len=4096 -artifact_prefix=./ "$@" archive-corpus >/dev/null
