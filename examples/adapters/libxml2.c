/* Reads the titles of books. It forgets the document of each book that has none. */
/* usage: adapters_libxml2 [fixed] */
#include "qkmem/adapters/libxml2.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <stdio.h>
#include <string.h>

#include "qkmem/profile.h"

static int forgets_documents = 1;

static void print_title(const char* text) {
  xmlDoc* const document = xmlReadMemory(text, (int)strlen(text), "book.xml", NULL, 0);
  if (document == NULL) return;
  xmlChar* const title = xmlGetProp(xmlDocGetRootElement(document), BAD_CAST "title");
  if (title == NULL && forgets_documents) return;
  if (title != NULL) puts((const char*)title);
  xmlFree(title);
  xmlFreeDoc(document);
}

int main(int argc, char** argv) {
  forgets_documents = argc < 2 || strcmp(argv[1], "fixed") != 0;
  if (qk_mem_adapt_libxml2(qk_mem_new_handle("MULTITHREADED", "XM")) != 0) return 1;
  xmlInitParser();
  qk_mem_push_site("reading books");
  print_title("<book title='Notes'/>");
  print_title("<book author='Ada'><page/><page/></book>");
  print_title("<book title='Letters'/>");
  qk_mem_pop_site();
  xmlCleanupParser();
  return 0;
}
