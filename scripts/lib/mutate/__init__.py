"""What `scripts/mutate` runs: faults that are planted in the sources to see whether the tests find them."""
