// A one-line version stamp in a section the loader never maps (no SHF_ALLOC);
// `readelf -p HyVersion libHYLNTool.so` prints it.
__asm__(".section HyVersion,\"\",@progbits\n"
        ".asciz \"HYLNTool " HYLN_VERSION_TEXT " built " HYLN_BUILD_DATE "\"\n"
        ".previous\n");
