#!/usr/bin/env bash
# Checks that the shared library defines exactly the exported TavrinKELD_* functions.
set -euo pipefail
lib=$1
expected="TavrinKELD_getVersion TavrinKELD_init TavrinKELD_setParamsByCfgFile
TavrinKELD_addFaceRect TavrinKELD_addImage TavrinKELD_process TavrinKELD_uninit"
actual=$(nm -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort -u)
if [ "$actual" != "$(printf '%s\n' $expected | sort -u)" ]; then
    echo "unexpected exports of $lib:"; echo "$actual"; exit 1
fi
echo "exports of $(basename "$lib"): $(echo $actual)"
