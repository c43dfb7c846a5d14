#!/usr/bin/env bash
# Builds the site in build/site/html: the pages of README and docs, and the reference from the headers.
# Warnings are errors, and every link inside the site is followed.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
qrt_install_packages "${QRT_DOCS_PACKAGES[@]}"

site=build/site
rm -rf "$site"
mkdir -p "$site/pages"

# The pages stand as in the sources, so that links between them hold. A link to a folder, which a browser
# would not open, goes to the folder's list of files; files that are no pages come along as they are.
git ls-files -- README.md CONTRIBUTING.md CHANGELOG.md docs packaging/licence.txt examples tests bench \
  scripts cmake .ci | while read -r file; do
  mkdir -p "$site/pages/$(dirname "$file")"
  cp "$file" "$site/pages/$file"
done
find "$site/pages" -name '.ci' -prune -o -type d -print | while read -r folder; do
  if [[ ! -e $folder/README.md && $folder != "$site/pages" ]]; then
    {
      echo "# ${folder#"$site/pages/"}"
      echo
      find "$folder" -maxdepth 1 -type f ! -name '.*' -printf '- [%f](%f)\n' | sort
    } >"$folder/README.md"
  fi
done
find "$site/pages" -name '*.md' -print0 | xargs -0 sed -i -E 's#\]\(((\.\./)*(docs|examples|tests|bench|scripts)(/[A-Za-z0-9_-]+)*)/?\)#](\1/README.md)#g'
mv "$site/pages/README.md" "$site/pages/index.md"
find "$site/pages" -name '*.md' -print0 | xargs -0 sed -i -E 's#\]\(\.\./README\.md#](../index.md#g'
cat >"$site/pages/reference.md" <<'PAGE'
# Reference

[Every class, from its header](reference/annotated.html).
PAGE
mkdir -p "$site/pages/reference"
(
  cat scripts/site/Doxyfile
  echo "OUTPUT_DIRECTORY = $site"
  echo "HTML_OUTPUT = pages/reference"
) | doxygen -

cp scripts/site/mkdocs.yml "$site/"
mkdocs build --quiet --config-file "$site/mkdocs.yml"
linkchecker --no-status --no-warnings --ignore-url '^(https?|mailto):' "$site/html/index.html" |
  tail -3
echo "$site/html/index.html"
