"""What the library aims at in relation to others, and how far it is."""

import tomllib
from dataclasses import dataclass
from pathlib import Path

from report.results import Row, best

_GOALS = Path(__file__).parent / "goals.toml"


@dataclass(frozen=True)
class Goal:
    """Some workloads of a contender of the library, as goals.toml has them."""

    title: str
    program: str
    workloads: list[str]
    contender: str
    against: str  # 'peer' or 'limit'
    ratio: float

    def reached(self, rows: list[Row]) -> float | None:
        """The lowest ratio of the workloads; none if no workload was measured."""
        ratios = (self._ratio(workload, rows) for workload in self.workloads)
        return min((ratio for ratio in ratios if ratio is not None), default=None)

    def _ratio(self, workload: str, rows: list[Row]) -> float | None:
        group = [row for row in rows if row.program == self.program and row.workload == workload]
        own = next((row for row in group if row.contender == self.contender), None)
        other = best(group, self.against)
        return other / own.nanoseconds if own is not None and other is not None else None


def read() -> list[Goal]:
    return [Goal(**entry) for entry in tomllib.loads(_GOALS.read_text())["goal"]]
