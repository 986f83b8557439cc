"""One page about one search: a file to open, to print and to send."""

from kestrune_search_report.page.document import page

__all__ = ["page"]
