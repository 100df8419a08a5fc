# Sourced by the benchmark scripts. measure runs a command under /usr/bin/time and prints
# "WALL_SECONDS CPU_SECONDS MIB", or "- - -" when the command fails (its message goes to
# stderr). CPU time (user + system) is printed beside wall time because the machine may be
# shared: waiting for a core is not work done. The caller sets $work to a scratch folder.
measure() {
  if ! /usr/bin/time -f '%e %U %S %M' -o "$work/time" "$@" >"$work/out" 2>"$work/err"; then
    echo "run.sh: failed: $* -- $(tail -n 1 "$work/err")" >&2
    echo "- - -"
    return
  fi
  read -r secs user sys kib <"$work/time"
  awk -v s="$secs" -v u="$user" -v y="$sys" -v k="$kib" \
    'BEGIN { printf "%.2f %.2f %.1f\n", s, u + y, k / 1024 }'
}
