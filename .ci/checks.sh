# The steps of ./kx check, which sources this file: one function check_NAME for each name, in this order.
# ./kx check NAME runs one step.
# shellcheck shell=bash disable=SC2034
readonly checks=(format scripts layering built_files macos_sources reference release benchmarks hardening
  documents ordinary_user tidy gnustep ${MACOS_SDK:+macos} fuzz asan gnustep_asan tsan)

sources() { git ls-files -- '*.cc' '*.h' '*.mm'; }

check_format() { sources | xargs clang-format --dry-run --Werror; }

check_scripts() {
  git ls-files -- kx .ci/run packaging/kxtool-report '*.sh' '*.bash' | xargs shellcheck
  git ls-files -- .yamllint '*.yml' | xargs yamllint --strict
}

check_layering() { /usr/bin/python3 tests/checks/layering.py; }

# Checks that every test, bench and fuzz file is built.
check_built_files() { /usr/bin/python3 tests/checks/built_files.py; }

# Makes the API reference. Fails if Doxygen warns.
check_reference() { mkdir -p build/docs && doxygen Doxyfile; }

check_release() { build release; }
check_benchmarks() { build bench bench; }
check_hardening() { /usr/bin/python3 tests/checks/hardening.py build/release/KXTool; }
check_documents() { command_test documents; }

# Runs, as an ordinary user in a private home folder, the tests whose results depend on the user and the folder.
check_ordinary_user() {
  local home program=build/release/tests/real_signatures/kx_check_signature
  local -a as_user=()
  build release KXTool simulator kx_check_signature
  home=$(mktemp --directory)
  { git ls-files -z && find build/release/{KXTool,simulator/service,simulator/*.so} "$program" -print0; } |
    xargs -0 cp --parents --target-directory "$home"
  if [[ $EUID -eq 0 ]]; then
    as_user=(setpriv --reuid 1000 --regid 1000 --clear-groups)
    chown -R 1000:1000 "$home"
  fi
  (
    cd "$home"
    export HOME=$home KX_BUILD=$home/build/release KX_CHECK_SIGNATURE=$home/$program
    export TMPDIR=$home PYTHONDONTWRITEBYTECODE=1
    "${as_user[@]}" /usr/bin/python3 -m unittest tests.code_signing.signed_files.plain_file_test \
      tests.end_to_end.image_installer_test.Copying simulator.endpoint_test.InPlace &&
      "${as_user[@]}" /usr/bin/python3 -c '
from tests.faults import matrix, matrix_test
for family in matrix.FAMILIES.values():
    for row in family:
        if "unreadable" in row.name:
            matrix_test.Matrix().check(row)'
  ) || { rm -rf "$home" && return 1; }
  rm -rf "$home"
}

check_tidy() {
  git ls-files -- 'app/*.cc' 'diag/*.cc' 'product/*.cc' 'sdk/*.cc' 'queries/*.cc' 'install/*.cc' \
    ':(glob)platform/*.cc' 'platform/posix/*.cc' 'platform/linux/*.cc' |
    grep -v '_test\.cc$' |
    xargs --max-args 1 --max-procs "$(nproc)" clang-tidy --quiet -p build/release
}

# Runs the tests of the macOS program that cannot run under the sanitizers.
check_gnustep() {
  build gnustep
  run_tests gnustep --tests-regex '^(platform_contract|faults\.limits_test)'
}

# Checks that the sources of a macOS build include only headers that macOS has.
check_macos_sources() { /usr/bin/python3 tests/checks/macos_sources.py; }

# With an SDK, builds everything that a Mac builds, for both architectures and with two versions of libc++'s
# headers.
check_macos() {
  build macos-cross
  local headers
  for headers in build/macos-cross build/macos-cross/newer-headers; do
    /usr/bin/python3 tests/macos/check_binary.py "$headers/KXTool" \
      "$headers"/{x86_64,arm64}/tests/platform_contract/kx_platform_contract_tests
  done
  /usr/bin/python3 tests/macos/static_analysis.py build/macos-cross/arm64
}

check_fuzz() { command_fuzz 5; }

check_asan() {
  build asan
  run_tests asan
}

check_gnustep_asan() {
  build gnustep-asan
  run_tests gnustep-asan
}

check_tsan() {
  build tsan
  TSAN_OPTIONS=halt_on_error=1 run_tests tsan
}
