#include "page/template.h"

// The assembler takes a file in as it is; a string literal can't be of that size everywhere.
__asm__(
    ".pushsection .rodata\n"
    ".global qkmem_page_template\n"
    ".hidden qkmem_page_template\n"
    ".global qkmem_page_template_end\n"
    ".hidden qkmem_page_template_end\n"
    "qkmem_page_template:\n"
    ".incbin \"" QKMEM_PAGE_TEMPLATE
    "\"\n"
    "qkmem_page_template_end:\n"
    ".popsection\n");

extern "C" const char qkmem_page_template[];
extern "C" const char qkmem_page_template_end[];

namespace qk::command {

std::string_view page_template() { return {qkmem_page_template, qkmem_page_template_end}; }

}  // namespace qk::command
