/* The version of the library, as a C application sees it. */
#include <kestova.h>
#include <stdio.h>

int main(void)
{
    return printf("%s, ABI %d\n", kestova_version(), kestova_abi()) < 0;
}
