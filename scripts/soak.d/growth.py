"""What has grown: quantities that were sampled over and over, and when one of them counts as grown.

A single sample says little: connections come and go while it is taken, and an allocator keeps what it
will need again. So the median of the first third of the samples is compared with that of the last
third, and a quantity may be larger by a stated allowance. What leaks grows with the time, the
allowance does not: the longer a soak, the smaller the leak that it finds."""

import statistics

KIB = 1024

# How much larger the median of the last third may be.
ALLOWED = {
    "heap KiB": 256,
    "mappings": 16,
    "descriptors": 4,
    "threads": 3,
    "match rules": 12,
    "bus names": 8,
    "files": 4,
    # A reader that the machine does not let run keeps the store from using pages again: each wait that
    # is longer than all before makes the file a little larger, once.
    "files KiB": 8192,
}

# Windows of any number come and go there, with their pictures.
ALLOWED_VIEWER = {"heap KiB": 2048, "mappings": 48}


class Growth:
    """One quantity of one process, or of the stage: `samples` are (seconds, value)."""

    def __init__(self, whose, quantity, samples):
        self.whose, self.quantity, self.samples = whose, quantity, samples
        third = max(1, len(samples) // 3)
        values = [value for _, value in samples]
        self.first = statistics.median(values[:third])
        self.last = statistics.median(values[-third:])
        self.allowed = (ALLOWED_VIEWER if whose == "viewer" else {}).get(quantity, ALLOWED[quantity])
        self.per_minute = 60 * slope(samples)
        self.has_grown = self.last - self.first > self.allowed

    def row(self):
        verdict = "GROWS" if self.has_grown else "ok"
        return (f"{self.whose:<12} {self.quantity:<12} {self.first:>10.0f} {self.last:>10.0f} "
                f"{self.per_minute:>+12.2f} {self.allowed:>9} {verdict}")


def slope(samples):
    """Of the straight line through them, a second."""
    if len({seconds for seconds, _ in samples}) < 2:
        return 0.0
    seconds, values = zip(*samples)
    return statistics.linear_regression(seconds, values).slope


def table(growths):
    head = (f"{'of':<12} {'quantity':<12} {'first':>10} {'last':>10} {'a minute':>12} {'allowed':>9}")
    return "\n".join([head, *(growth.row() for growth in growths)])
