// Windows: the linker reads the names from kivsdu.def itself.
