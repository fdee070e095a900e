// The runtime's own one-line stamp, in the same unmapped section the library uses,
// so that `hyln --version` can name the runtime it would load.
__asm__(".section HyVersion,\"\",@progbits\n"
        ".asciz \"HYLNTool simulated runtime " HYLN_VERSION_TEXT " built " HYLN_BUILD_DATE "\"\n"
        ".previous\n");
