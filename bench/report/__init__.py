"""The report of './dev bench'."""
