// Holds only the tests' precompiled header.
