"""What became of the calls of a soak, and which properties broke."""

import collections


class Ledger:
    """Each call that is made ends in exactly one of answered, failed and lost; what must not happen is
    a violation. One thread."""

    kept = 20  # violations of one kind that are told word for word

    def __init__(self):
        self.made = collections.Counter()  # by kind of call
        self.answered = collections.Counter()  # by kind of call
        self.answers = collections.Counter()  # by door
        self.failed = collections.Counter()  # by cause: an error that the circumstances excuse
        self.lost = collections.Counter()  # by cause: the connection ended first
        self.noted = collections.Counter()  # other things that happened
        self.violations = collections.Counter()
        self.violation_texts = []

    def violate(self, kind, text):
        self.violations[kind] += 1
        if self.violations[kind] <= self.kept:
            self.violation_texts.append(f"{kind}: {text}")

    def check_sum(self):
        made = self.made.total()
        ended = self.answered.total() + self.failed.total() + self.lost.total()
        if made != ended:
            self.violate("unanswered", f"{made} calls were made and {ended} have ended")
