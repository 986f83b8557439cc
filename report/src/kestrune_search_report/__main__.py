"""`python -m kestrune_search_report` is the command."""

from kestrune_search_report.cli import main

main()
