"""What the measurements of bench/ mean: goals, marks, and rows of the pages and of the history."""

import csv
import io

# A range that is wider than this part of the figure makes it uncertain.
CERTAIN = 0.10

COLUMNS = ["Workload", "compared with", "qkmem", "others"]
GOAL_COLUMNS = ["Workload", "qkmem", "goal", "reached"]
HISTORY_COLUMNS = ["date", "parent", "processor", "cores", "row", "ratio", "low", "high",
                   "uncertain", "others"]


class Goal:
    """The highest ratio that qkmem is meant to have, to the first contestant or to a peer."""

    def __init__(self, ratio, multiple, peer, join):
        self.ratio = float(ratio)  # 0 for none
        self.multiple = float(multiple)  # 0 for none
        self.peer = peer
        self.join = join  # "and" or "or", between the two; "above" adds the ratio to the peer's

    def __bool__(self):
        return self.ratio != 0 or self.multiple != 0

    def __str__(self):
        if self.join == "above":
            return f"{self.ratio:.2f} above {self.peer}"
        parts = []
        if self.ratio:
            parts.append(f"{self.ratio:.2f}")
        if self.multiple == 1:
            parts.append(f"below {self.peer}")
        elif self.multiple:
            parts.append(f"{self.multiple:.2f} times {self.peer}")
        return f" {self.join} ".join(parts)

    def reached(self, ratio, peers):
        """Whether a ratio reaches it, beside the ratios of the peers; None if a peer is missing."""
        if self.join == "above":
            return ratio <= self.ratio + peers[self.peer] if self.peer in peers else None
        verdicts = []
        if self.ratio:
            verdicts.append(ratio <= self.ratio)
        if self.multiple and self.peer in peers:
            most = self.multiple * peers[self.peer]
            verdicts.append(ratio < most if self.multiple == 1 else ratio <= most)
        elif self.multiple:
            verdicts.append(None)
        if self.join == "and":
            return False if False in verdicts else None if None in verdicts else True
        return True if True in verdicts else None if None in verdicts else False


class Figure:
    """A contestant's ratio to the first contestant, and the range of the measurements around it."""

    def __init__(self, name, ratio, low, high):
        self.name = name
        self.ratio = ratio
        self.low = low
        self.high = high

    @classmethod
    def of_processes(cls, name, ratios):
        """The median of an odd number of processes, and the range of the middle half of them."""
        ordered = sorted(ratios)
        quarter = len(ordered) // 4
        return cls(name, ordered[len(ordered) // 2], ordered[quarter], ordered[-1 - quarter])

    def is_uncertain(self):
        return self.high - self.low > CERTAIN * self.ratio

    def text(self, strong=False):
        ratio = f"**{self.ratio:.2f}**" if strong else f"{self.ratio:.2f}"
        uncertain = ", uncertain" if self.is_uncertain() else ""
        return f"{ratio} ({self.low:.2f}..{self.high:.2f}{uncertain})"


class Row:
    """A workload with its figures. `baseline` names what the ratios are to, with its time."""

    def __init__(self, name, title, goal, baseline, subject, others):
        self.name = name
        self.title = title
        self.goal = goal
        self.baseline = baseline
        self.subject = subject
        self.others = others

    def columns(self):
        return [self.title, self.baseline, self.subject.text(strong=True),
                "; ".join(f"{other.name} {other.text()}" for other in self.others) or "-"]

    def goal_columns(self):
        peers = {other.name: other.ratio for other in self.others}
        ratio = f"{self.subject.ratio:.2f}"
        if self.goal.peer in peers:
            ratio += f" ({self.goal.peer} {peers[self.goal.peer]:.2f})"
        reached = {True: "yes", False: "no", None: f"{self.goal.peer} is missing"}[
            self.goal.reached(self.subject.ratio, peers)]
        if self.subject.is_uncertain():
            reached += ", uncertain"
        return [self.title, ratio, str(self.goal), reached]

    def history_columns(self, run):
        subject = self.subject
        return [*run, self.name, f"{subject.ratio:.3f}", f"{subject.low:.3f}",
                f"{subject.high:.3f}", "yes" if subject.is_uncertain() else "no",
                "; ".join(f"{other.name} {other.ratio:.3f}" for other in self.others)]

    def text(self):
        title, baseline, subject, others = self.columns()
        return (f"{title} [{self.name}]\n    compared with {baseline}: "
                f"{subject.replace('**', '')}\n    {others}")


def table(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def ratio_table(rows):
    return table(COLUMNS, [row.columns() for row in rows])


def goal_table(rows):
    return table(GOAL_COLUMNS, [row.goal_columns() for row in rows if row.goal])


def history_lines(rows, run):
    """A line for each row, in CSV. `run` has the date, the parent commit, the processor, its cores."""
    text = io.StringIO()
    csv.writer(text, lineterminator="\n").writerows(row.history_columns(run) for row in rows)
    return text.getvalue()


def append_history(path, lines):
    """Appends lines to the history. A new file begins with the names of the columns."""
    with open(path, "a", encoding="utf-8") as file:
        if file.tell() == 0:
            file.write(",".join(HISTORY_COLUMNS) + "\n")
        file.write(lines)
