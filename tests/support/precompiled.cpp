// Has nothing but the tests' precompiled header.
