#!/bin/sh
# Installs the library into a folder of its own and builds a small program against it, once with find_package and once
# with pkg-config: check.sh BUILD-FOLDER SOURCE-FOLDER
set -eu
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/root" >/dev/null
cmake -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/root" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/cmake" >/dev/null
[ "$("$work/cmake/consumer")" = 255 ]

PKG_CONFIG_PATH=$(dirname "$(find "$work/root" -name qmrimg.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
"${CXX:-c++}" "$source/consumer.cpp" -o "$work/consumer" $(pkg-config --define-prefix --cflags --libs qmrimg)
library=$(dirname "$(find "$work/root" -name libqmrimg.so)")
[ "$(LD_LIBRARY_PATH=$library "$work/consumer")" = 255 ]

# The program runs from where it was installed.
"$work/root/bin/qmr" --version >/dev/null
