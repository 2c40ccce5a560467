/* dlopen and dlsym as zel-run preloads them, for x86-64.
 *
 * Each asks a C++ function what to do and then jumps (not calls) to the C library's function, so
 * that the C library sees the program's own return address: dlopen searches the caller's RUNPATH
 * and expands $ORIGIN from it, and dlsym(RTLD_NEXT, ...) is relative to the caller. A call from C++
 * would make this library the caller of every dlopen and dlsym in the process. */

    .text

    .globl dlopen
    .type dlopen, @function
dlopen:
    .cfi_startproc
    push %rdi
    .cfi_adjust_cfa_offset 8
    push %rsi
    .cfi_adjust_cfa_offset 8
    sub $8, %rsp
    .cfi_adjust_cfa_offset 8
    call zelvisa_dlopen_name            /* the file to open: the one asked for, or the real VISA library */
    add $8, %rsp
    .cfi_adjust_cfa_offset -8
    pop %rsi
    .cfi_adjust_cfa_offset -8
    pop %rdi
    .cfi_adjust_cfa_offset -8
    mov %rax, %rdi
    jmp *zelvisa_real_dlopen(%rip)
    .cfi_endproc
    .size dlopen, .-dlopen

    .globl dlsym
    .type dlsym, @function
dlsym:
    .cfi_startproc
    push %rdi
    .cfi_adjust_cfa_offset 8
    push %rsi
    .cfi_adjust_cfa_offset 8
    sub $8, %rsp
    .cfi_adjust_cfa_offset 8
    call zelvisa_dlsym_traced           /* the traced VISA function to return instead, or 0 */
    add $8, %rsp
    .cfi_adjust_cfa_offset -8
    pop %rsi
    .cfi_adjust_cfa_offset -8
    pop %rdi
    .cfi_adjust_cfa_offset -8
    test %rax, %rax
    jz 1f
    ret
1:
    jmp *zelvisa_real_dlsym(%rip)
    .cfi_endproc
    .size dlsym, .-dlsym

    .section .note.GNU-stack, "", @progbits
