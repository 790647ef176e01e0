/* A program built against an installed vexor. Usage: consumer <expected version> */
#include <stdio.h>
#include <string.h>

#include <vexor/vexor.h>

int main(int argc, char **argv) {
    const char *version = VxVersion();
    if (argc != 2 || version == NULL || strcmp(version, argv[1]) != 0) {
        fprintf(stderr, "consumer: linked vexor %s, expected %s\n", version ? version : "(null)",
                argc == 2 ? argv[1] : "(none given)");
        return 1;
    }
    printf("consumer: vexor %s\n", version);
    return 0;
}
