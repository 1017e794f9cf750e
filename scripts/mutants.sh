#!/usr/bin/env bash
# Puts the deliberate faults of scripts/mutants.list one at a time into a scratch
# copy of the tree, rebuilds it and runs the tests each fault names: "caught" when
# one of them fails, "missed" when all pass. A fault that no longer applies
# ("stale") or doesn't compile ("broken") is a defect of the list.
set -euo pipefail

usage() {
    cat <<'EOF'
usage: scripts/mutants.sh [--only REGEX] [--jobs N] [--scratch DIR] [--keep] [--check]
  --only REGEX   only the faults whose name matches (grep -E)
  --jobs N       parallel build jobs (default: all cores)
  --scratch DIR  build there, and keep it for the next run (default: a temporary folder)
  --keep         keep the temporary folder
  --check        only check that each fault applies and builds; run no tests
EOF
}

root=$(cd "$(dirname "$0")/.." && pwd)
list=$root/scripts/mutants.list
only=. jobs=$(nproc) scratch="" keep=0 check=0
while (($#)); do
    case $1 in
    --only) only=$2 && shift 2 ;;
    --jobs) jobs=$2 && shift 2 ;;
    --scratch) scratch=$(realpath -m "$2") keep=1 && shift 2 ;;
    --keep) keep=1 && shift ;;
    --check) check=1 && shift ;;
    -h | --help) usage && exit 0 ;;
    *) usage >&2 && exit 2 ;;
    esac
done
[[ -n $scratch ]] || scratch=$(mktemp -d /tmp/quillery-mutants.XXXXXX)
tree=$scratch/src build=$scratch/build logs=$scratch/logs
mkdir -p "$tree" "$logs"

mutated= # the scratch file that holds a fault right now
finish() {
    [[ -n $mutated ]] && cp "$scratch/original" "$tree/$mutated"
    if ((keep)); then echo "scratch tree kept in $scratch"; else rm -rf "$scratch"; fi
}
trap finish EXIT
trap "exit 130" INT TERM

# The working tree, tracked and new files; only files whose content differs
# are copied, so that a reused build rebuilds what changed and nothing else.
(cd "$root" && git ls-files -z --cached --others --exclude-standard) |
    while IFS= read -r -d '' file; do
        if [[ ! -f $root/$file ]] || cmp -s "$root/$file" "$tree/$file"; then continue; fi
        mkdir -p "$(dirname "$tree/$file")" && cp "$root/$file" "$tree/$file"
    done

# The list as NUL-separated records: name, file, tests, original, replacement.
records=$scratch/records
perl -ne '
    sub flush {
        print join("\0", @f, join("\n", @old), join("\n", @new)), "\0" if @f;
        @old = @new = ();
    }
    next if /^\s*(#|$)/;
    chomp;
    if (/^== (\S+) (\S+) (.+)$/) { flush(); @f = ($1, $2, $3) }
    elsif (/^- ?(.*)$/) { push @old, $1 }
    elsif (/^\+ ?(.*)$/) { push @new, $1 }
    else { die "mutants.list:$.: cannot read \"$_\"\n" }
    END { flush() }' "$list" >"$records"

# The CTest arguments for a fault's TESTS field.
selection() {
    if [[ $1 == -L* ]]; then
        read -ra sel <<<"$1"
    else
        sel=(-R "^($1)\$")
    fi
}

# The names of the tests (and so of their programs) that $sel selects.
test_names() {
    (cd "$build" && ctest -N "${sel[@]}" | sed -n "s/^ *Test *#[0-9]*: //p")
}

# Replaces the one occurrence of $2 by $3 in file $1; fails if there isn't exactly one.
apply() {
    OLD=$2 NEW=$3 perl -0777 -i -pe '
        $count = () = /\Q$ENV{OLD}\E/g;
        $count == 1 ? s/\Q$ENV{OLD}\E/$ENV{NEW}/ : ($bad = 1);
        END { exit 3 if $bad }' "$1"
}

faults=() files=() tests=() olds=() news=()
while IFS= read -r -d '' name && IFS= read -r -d '' file && IFS= read -r -d '' test &&
    IFS= read -r -d '' old && IFS= read -r -d '' new; do
    grep -qE -- "$only" <<<"$name" || continue
    faults+=("$name") files+=("$file") tests+=("$test") olds+=("$old") news+=("$new")
done <"$records"
((${#faults[@]})) || { echo "no fault matches \"$only\"" >&2 && exit 2; }

# One build of everything the chosen faults test, and one run of their tests
# on the clean tree: a test that fails already proves nothing.
cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQUILLERY_BUILD_BENCH=OFF >"$logs/configure.log"
names=()
for test in "${tests[@]}"; do
    selection "$test"
    mapfile -t -O "${#names[@]}" names < <(test_names)
done
mapfile -t names < <(printf '%s\n' "${names[@]}" | sort -u)
echo "building ${#names[@]} test programs in $build"
ninja -C "$build" -j "$jobs" "${names[@]}" >"$logs/build.log" || {
    tail -20 "$logs/build.log" && exit 1
}
if ((!check)); then
    everything=$(IFS='|' && echo "${names[*]}")
    (cd "$build" && ctest --timeout 120 -R "^($everything)\$") >"$logs/clean.log" || {
        sed -n '/tests FAILED:/,$p' "$logs/clean.log"
        echo "the clean tree fails these tests: fix them first" >&2
        exit 1
    }
fi

caught=0 missed=0 broken=0 stale=0 started=$SECONDS
for i in "${!faults[@]}"; do
    name=${faults[i]} file=${files[i]} log=$logs/${faults[i]}.log begun=$SECONDS
    cp -p "$tree/$file" "$scratch/original"
    if ! apply "$tree/$file" "${olds[i]}" "${news[i]}"; then
        cp -p "$scratch/original" "$tree/$file" # perl wrote it anew
        ((++stale)) && printf '%-30s stale: not exactly once in %s\n' "$name" "$file"
        continue
    fi
    mutated=$file
    selection "${tests[i]}"
    mapfile -t targets < <(test_names)
    if ! ninja -C "$build" -j "$jobs" "${targets[@]}" >"$log" 2>&1; then
        result=broken
    elif ((check)); then
        result=compiles
    elif (cd "$build" && ctest --timeout 120 --output-on-failure "${sel[@]}") >>"$log" 2>&1; then
        result=missed
    else
        result="caught by $(sed -nE 's/^\s*[0-9]+ - (\S+) .*/\1/p' "$log" | paste -sd,)"
    fi
    cp "$scratch/original" "$tree/$file" && mutated= # a new mtime: ninja rebuilds it
    case $result in
    broken) ((++broken)) ;;
    missed) ((++missed)) ;;
    caught*) ((++caught)) ;;
    esac
    printf '%-30s %-45s %3ds\n' "$name" "$result" $((SECONDS - begun))
done

summary="$caught caught, $missed missed"
((check)) && summary="$((${#faults[@]} - broken - stale)) compile"
((broken)) && summary+=", $broken broken"
((stale)) && summary+=", $stale stale"
took=$(((SECONDS - started) / 60))
((keep)) && echo "$took min; logs in $logs" || echo "$took min"
echo "$summary"
((broken + stale == 0))
