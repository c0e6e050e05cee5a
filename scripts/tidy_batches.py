"""Prints a compilation database in which the files of a folder are compiled as one.

    scripts/tidy_batches.py BUILD_DIRECTORY OUT_DIRECTORY FILE...

clang-tidy spends most of its time on headers, and files of one folder share nearly all of theirs. Writes one source per
folder that includes the named files of it, and OUT_DIRECTORY/compile_commands.json with the options that the build
directory has for the first of them. Prints the paths of the sources. Their name begins as clang's analyser wants it: only
then it follows the paths of functions in the files that such a source includes.
"""

import json
import sys
from pathlib import Path


def main() -> None:
    build, out, *files = sys.argv[1:]
    entries = json.loads((Path(build) / "compile_commands.json").read_text())
    commands = {entry["file"]: entry for entry in entries}
    folders: dict[Path, list[str]] = {}
    for file in files:
        path = Path(file).resolve()
        folders.setdefault(path.parent, []).append(str(path))

    Path(out).mkdir(parents=True, exist_ok=True)
    batches = []
    for folder, sources in sorted(folders.items()):
        batch = Path(out).resolve() / ("UnifiedSource_" + "_".join(folder.relative_to(Path.cwd()).parts) + ".cpp")
        batch.write_text("".join(f'#include "{source}"\n' for source in sources))
        entry = commands[sources[0]]
        command = entry["command"].replace(sources[0], str(batch))
        batches.append({"directory": entry["directory"], "file": str(batch), "command": command})
    (Path(out) / "compile_commands.json").write_text(json.dumps(batches, indent=1))
    print("\n".join(batch["file"] for batch in batches))


if __name__ == "__main__":
    main()
