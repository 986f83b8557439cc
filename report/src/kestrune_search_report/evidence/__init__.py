"""What the answers are worth: intervals, tests against chance, and what they assume."""
