#!/usr/bin/env bash
# Checks that the code is built one way up: a file includes headers of its own floor and of the
# floors below it, never of one above. The programs beside the floors may include the floors up
# to the one named for them. Tests, benchmarks and fuzzers may include every floor.
# Usage: scripts/check-floors.sh [SOURCE_FOLDER]
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"

# The floors, ground first. Each folder's library links only floors below it.
floors=(core ledger queue runner settings status ui app)
# Programs beside the floors: folder and the highest floor it stands on.
programs=(adapter:runner sim:runner tools/spinlane-ini:queue tools/spinlane-ledger:ledger tools/spinlane-status:status
          tools/spinlane-screenshots:app facility:ledger web:status)

level() {
    local i
    for i in "${!floors[@]}"; do
        [[ ${floors[i]} == "$1" ]] && echo "$i" && return
    done
    echo -1
}

found=0
check() { # folder, highest floor it may include
    local folder=$1 top file line text included floor
    top=$(level "$2")
    while IFS=: read -r file line text; do
        included=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]([^>"]*)[>"].*/\1/' \
                   <<<"$text")
        floor=${included%%/*}
        if [[ $included == */* && $(level "$floor") -gt $top ]]; then
            echo "$file:$line: includes $included, a floor above $2" >&2
            found=1
        fi
    done < <(grep -rnE --include='*.cpp' --include='*.h' '^[[:space:]]*#[[:space:]]*include' "$folder")
}

for floor in "${floors[@]}"; do
    check "$floor" "$floor"
done
for program in "${programs[@]}"; do
    check "${program%%:*}" "${program##*:}"
done
if ((found)); then
    echo "An include above reaches up a floor; README, \"How the code is laid out\", says where" \
         "things go." >&2
    exit 1
fi
echo "Every include keeps to its floor or those below."
