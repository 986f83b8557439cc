"""The parts of the search demo: prices, candidates, their evaluation, and the answers."""
