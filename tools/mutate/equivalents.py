"""The survivors that no test can notice, each with its reason: equivalent.txt."""


def read(path):
    """The reason of each entry, by the mutant's identity.

    An entry is the mutant as the report shows it, the reason, and a blank line:

        FILE FUNCTION KIND
        - the lines as they are, as one
        + the lines as the mutant has them
        the reason
    """
    text = "\n".join(li for li in path.read_text().splitlines() if not li.startswith("#"))
    entries = {}
    for block in filter(None, text.strip().split("\n\n")):
        identity, reason = parse(block.strip().splitlines(), path)
        if identity in entries:
            raise SystemExit(f"{path}: twice:\n{block}")
        entries[identity] = reason
    return entries


def parse(lines, path):
    head = lines[0].split()
    if len(lines) < 4 or len(head) != 3 or lines[1][:2] != "- " or lines[2][:2] != "+ ":
        raise SystemExit(f"{path}: no entry:\n" + "\n".join(lines))
    return (*head, lines[1][2:], lines[2][2:]), " ".join(li.strip() for li in lines[3:])
