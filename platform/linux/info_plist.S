/* The property list of the tool, between two symbols that keep its section from being collected.
   The build names the file. */
    .section __info_plist, "a", @progbits
    .globl kx_info_plist_begin
    .hidden kx_info_plist_begin
    .type kx_info_plist_begin, @object
kx_info_plist_begin:
    .incbin KX_INFO_PLIST
    .globl kx_info_plist_end
    .hidden kx_info_plist_end
    .type kx_info_plist_end, @object
kx_info_plist_end:
    .section .note.GNU-stack, "", @progbits
