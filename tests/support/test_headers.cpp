// Compiled for its precompiled headers alone, if at all.
