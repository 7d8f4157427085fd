"""The report of a soak, as markdown."""


def _table(head, rows):
    lines = [f"| {' | '.join(head)} |", f"|{'---|' * len(head)}"]
    return lines + [f"| {' | '.join(str(cell) for cell in row)} |" for row in rows] + [""]


def _counts(title, counter):
    return _table((title, "count"), sorted(counter.items())) if counter else []


def text(soak):
    """Of a soak that has ended."""
    ledger = soak.ledger
    made = ledger.made.total()
    lines = [
        "# Soak",
        "",
        f"Seed {soak.seed}, {soak.elapsed:.0f} s.",
        "",
        f"{made} calls were made, {ledger.answered.total()} answered, {ledger.failed.total()} failed, "
        f"{ledger.lost.total()} lost with their connection.",
        "",
    ]
    lines += _table(
        ("call", "made", "answered"),
        [(kind, count, ledger.answered[kind]) for kind, count in sorted(ledger.made.items())],
    )
    lines += _counts("answers over the door", ledger.answers)
    lines += _counts("failed", ledger.failed)
    lines += _counts("lost", ledger.lost)
    lines += _counts("what else happened", ledger.noted)
    lines += ["## The hub before and after the load", ""]
    lines += _table(
        ("", "before", "after"),
        [(name, before, soak.after[name]) for name, before in soak.before.items()],
    )
    lines += ["## How long a change waits for those who publish", "", "```"]
    lines += soak.waits.splitlines() + ["```", ""]
    lines += ["## Broken properties", ""]
    lines += _counts("property", ledger.violations) or ["None.", ""]
    lines += [f"- {violation}" for violation in ledger.violation_texts]
    return "\n".join(lines).rstrip() + "\n"
