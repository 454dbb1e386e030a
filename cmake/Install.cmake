# What `cmake --install` gives: the shared library, its headers, the command, and the two ways to find them.
