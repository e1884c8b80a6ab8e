#!/usr/bin/env python3
"""Makes the data file, the control file and truth.json of this example from case.json."""
import sys
from pathlib import Path

here = Path(__file__).resolve().parent
sys.path.insert(0, str(here.parents[1] / "tests" / "runs" / "truth"))

import control_file  # noqa: E402
import simulate  # noqa: E402

simulate.simulate(here, reference=False)
print(len(control_file.write_all(here, exact=False)), "parameters")
