# Sourced by the check scripts. Under load Wine now and then fails to start
# a program: wine exits at once, non-zero, having printed nothing (seen as
# exit status 1 within 10 ms while another test program was starting
# processes). Vestrel's programs never fail without a word, so such a run is
# started once more, saying so on standard error; a program that really
# fails silently fails the second time too.
#
# run_started OUT ERR COMMAND [ARGUMENTS...]: runs the command with its
# standard output and standard error into the files OUT and ERR; returns its
# exit status.
run_started() {
  local out="$1" err="$2"
  shift 2
  "$@" >"$out" 2>"$err"
  local status=$?
  if [ "$status" -ne 0 ] && [[ "$(basename "$1")" == wine* ]] && [ ! -s "$out" ] && [ ! -s "$err" ]; then
    echo "wine did not start ${2:-the program} (exit $status, nothing printed); starting it once more" >&2
    "$@" >"$out" 2>"$err"
    status=$?
  fi
  return "$status"
}
