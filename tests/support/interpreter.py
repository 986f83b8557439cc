"""What tests have to know of the interpreter that runs them."""

from __future__ import annotations

import sys
import sysconfig

HAS_LOCK = not sysconfig.get_config_var("Py_GIL_DISABLED")
"""Whether it was built with the interpreter's lock."""

KNOWS_LAYOUT = sys.version_info < (3, 16) and sys.maxsize > 2**32 and HAS_LOCK
"""Whether the extension reads records in place on it."""

VERSIONS_DICTIONARIES = sys.version_info < (3, 14) and HAS_LOCK
"""Whether a dictionary tells that it has not been changed."""
