#!/bin/sh
# tools/manual_page.sh man|html NAME SECTION PAGE.md   makes a page of the manual of its Markdown, on standard output.
# The program lowdown has to be there. Date and version are those of docs/kpe.1.
set -eu
form=$1 name=$2 section=$3 page=$4
here=$(dirname "$(readlink -f "$0")")
title=$(sed -n '1s/^# //p' "$page")

if [ "$form" = html ]; then
    style='body { max-width: 50em; margin: 2em auto; padding: 0 1em; font-family: sans-serif; line-height: 1.4 }'
    style="$style pre { background: #f4f4f0; padding: .5em; overflow-x: auto; line-height: 1.2 }"
    style="$style table { border-collapse: collapse } td, th { border: 1px solid #999; padding: .2em .6em }"
    style="$style img { max-width: 100% }"
    lowdown -s -Thtml -M title="$title" "$page" |
        sed -e "s|</head>|<style>$style</style></head>|" \
            -e 's|<code>kpe-\([a-z]*\)(\([17]\))</code>|<a href="kpe-\1.html">kpe-\1(\2)</a>|g' \
            -e 's|\(href="[a-z-]*\)\.md"|\1.html"|g'
    exit
fi

# A page for man begins with its name and what it is; its headings are one level higher.
what=$(echo "$title" | sed 's/^[a-z-]*: //')
first=$(echo "$what" | cut -c1 | tr '[:upper:]' '[:lower:]')
read -r _ _ _ date version <<EOT
$(grep '^\.TH' "$here/../docs/kpe.1" | sed 's/ "User Commands"//')
EOT
printf '%s\n' "'\\\" t"
{
    printf '# NAME\n\n%s - %s%s\n' "$name" "$first" "$(echo "$what" | cut -c2-)"
    sed -e 1d -e 's/^##/#/' "$page"
} | lowdown -s -Tman -M title="$(echo "$name" | tr '[:lower:]' '[:upper:]')" -M section="$section" -M date="$date" \
    -M source="$(echo "$version" | tr -d '"')" | sed -e 's/\\fC/\\fB/g' -e '/^\.TH/a .ad l'
