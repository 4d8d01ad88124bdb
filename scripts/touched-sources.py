#!/usr/bin/python3
"""Prints the .cpp files that a change touches, those with the most changed lines first. For a header, the nearest
source that includes it stands in.

    scripts/touched-sources.py LIMIT

The change is what the working tree and the commits since the merge base with the main branch hold; on the main branch
itself, what its last 10 commits hold, or as many of them as a shallow clone has. With a single commit nothing can be
told, and LIMIT / 2 sources are taken at random, always the same ones for the same commit. Standard error says which of
these it was, and how many files are beyond the limit.
"""

import random
import re
import subprocess
import sys
from collections import Counter
from pathlib import Path

RECENT_COMMITS = 10


def git(*words):
    return subprocess.run(["git", *words], capture_output=True, text=True, check=True).stdout


def commit(name):
    found = subprocess.run(["git", "rev-parse", "-q", "--verify", name + "^{commit}"], capture_output=True, text=True)
    return found.stdout.strip()


def base_of_change():
    """Returns a commit and its description; None if there is only one commit."""
    head = commit("HEAD")
    for branch in "origin/main", "main":
        if commit(branch):
            # Fails where a shallow clone lacks the commit.
            found = subprocess.run(["git", "merge-base", branch, head], capture_output=True, text=True)
            base = found.stdout.strip()
            if base not in ("", head):
                return base, f"since the merge base with {branch}, {base[:9]}"
    recent = git("rev-list", "--first-parent", f"--max-count={RECENT_COMMITS + 1}", head).split()
    if len(recent) > 1:
        return recent[-1], f"in the last {len(recent) - 1} commits and the working tree"
    return None, ""


def changed_lines(base):
    """Returns the number of changed lines of each existing file."""
    counts = Counter()
    fields = iter(git("diff", "--numstat", "-M", "-z", base).split("\0"))
    for field in fields:
        if field:
            added, removed, path = field.split("\t")
            if not path:  # A renamed file is followed by both names.
                next(fields)
                path = next(fields)
            counts[path] = 0 if added == "-" else int(added) + int(removed)
    for path in git("ls-files", "-o", "--exclude-standard").splitlines():
        counts[path] = Path(path).read_bytes().count(b"\n")
    return {path: count for path, count in counts.items() if Path(path).is_file()}


def sources_for(header, includers):
    """Returns the nearest sources that include the header."""
    seen, level = {header}, [header]
    while level and not any(path.endswith(".cpp") for path in level):
        level = sorted({path for one in level for path in includers.get(one, []) if path not in seen})
        seen.update(level)
    return [path for path in level if path.endswith(".cpp")]


def touched(files, base):
    counts = changed_lines(base)
    weights = Counter({path: count for path, count in counts.items() if path.endswith(".cpp")})
    includers = {}
    for path in files:
        for header in re.findall(r'^#include "(.+)"', Path(path).read_text("utf-8"), re.M):
            includers.setdefault(header, []).append(path)
    for header in sorted(path for path in counts if path.endswith(".h")):
        sources = sources_for(header, includers)
        if not sources:
            print(f"No source file includes {header}; it was not checked.", file=sys.stderr)
            continue
        own = header.removesuffix(".h") + ".cpp"
        best = own if own in sources else max(sources, key=lambda path: weights[path])
        weights[best] += counts[header]
    return [path for path, _ in weights.most_common()]


limit = int(sys.argv[1])
base, meaning = base_of_change()
files = git("ls-files", "-co", "--exclude-standard", "--", "*.cpp", "*.h").splitlines()
files = [path for path in files if Path(path).is_file()]
if base:
    sources = touched(files, base)
else:
    sources = [path for path in files if path.endswith(".cpp")]
    random.Random(commit("HEAD")).shuffle(sources)
    limit //= 2
    meaning = "in all, of which a sample is taken because one commit does not tell what has changed"
print(f"{len(sources)} sources {meaning}; {max(0, len(sources) - limit)} of them are left out.", file=sys.stderr)
print(*sources[:limit], sep="\n")
