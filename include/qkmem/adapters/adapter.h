/** What the adapters have in common. Programs include the adapter of their library. */
#ifndef QKMEM_ADAPTERS_ADAPTER_H_
#define QKMEM_ADAPTERS_ADAPTER_H_

/**
 * What adapters pass as the alignment. An ordinary handle ignores it, and aligns to 16 bytes. A
 * block-managed one refuses it with code 5022, and must do so: its realloc doesn't copy what was in
 * a piece, so that a library that resizes its memory would lose it.
 */
enum { QK_MEM_ADAPTER_ALIGNMENT = 0 };

#endif /* QKMEM_ADAPTERS_ADAPTER_H_ */
