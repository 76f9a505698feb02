"""scripts/soak calls a leak a leak, and noise noise."""

import pathlib
import random
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts/soak.d"))

import growth  # noqa: E402

SECONDS = 60


def grown(quantity, value, whose="writer"):
    """Whether it has grown when it is `value(second)` for a minute."""
    return growth.Growth(whose, quantity, [(at, value(at)) for at in range(SECONDS)]).has_grown


class GrowthTest(unittest.TestCase):
    def setUp(self):
        self.random = random.Random(1)

    def test_what_stays_is_fine(self):
        for quantity in growth.ALLOWED:
            self.assertFalse(grown(quantity, lambda at: 1000), quantity)

    def test_what_shrinks_is_fine(self):
        self.assertFalse(grown("descriptors", lambda at: 100 - at))

    def test_noise_is_fine(self):
        for quantity, allowed in growth.ALLOWED.items():
            self.assertFalse(grown(quantity, lambda at: 5000 + self.random.uniform(-1, 1) * allowed), quantity)

    def test_a_few_large_samples_are_fine(self):
        self.assertFalse(grown("heap KiB", lambda at: 90000 if at % 7 == 6 else 20000))
        self.assertFalse(grown("descriptors", lambda at: 40 if at > 50 else 20))

    def test_one_step_within_the_allowance_is_fine(self):
        self.assertFalse(grown("heap KiB", lambda at: 20000 if at < 30 else 21000, "viewer"))
        self.assertTrue(grown("heap KiB", lambda at: 20000 if at < 30 else 21000))

    def test_a_leak_is_found_beneath_noise(self):
        for quantity, allowed in growth.ALLOWED.items():
            leak = 2 * allowed / SECONDS  # 4/3 of the allowance between the middles of the thirds
            noise = 0.5 * allowed
            self.assertTrue(grown(quantity, lambda at: 500 + leak * at + self.random.uniform(-noise, noise)),
                            quantity)

    def test_the_slope_is_a_minutes(self):
        each = growth.Growth("viewer", "descriptors", [(at, 7 + 2 * at) for at in range(10)])
        self.assertAlmostEqual(each.per_minute, 120)

    def test_one_sample_is_no_growth(self):
        each = growth.Growth("bus", "match rules", [(0, 7)])
        self.assertEqual((False, 0), (each.has_grown, each.per_minute))

    def test_the_table_tells_who_grows(self):
        rows = growth.table([growth.Growth("viewer", "threads", [(0, 1), (1, 9)]),
                             growth.Growth("writer", "threads", [(0, 1), (1, 2)])]).splitlines()
        self.assertTrue(rows[1].startswith("viewer") and rows[1].endswith("GROWS"))
        self.assertTrue(rows[2].startswith("writer") and rows[2].endswith("ok"))


if __name__ == "__main__":
    unittest.main()
