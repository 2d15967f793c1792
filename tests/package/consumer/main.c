/* Links against the installed library and calls it. */
#include <stdio.h>
#include <string.h>

#include <ql_is/ql_is.h>

int main(void) {
  const char *version = ql_is_get_version();
  printf("%s\n", version);
  return strcmp(version, "QELARN-AS-V2.0.6") == 0 ? 0 : 1;
}
