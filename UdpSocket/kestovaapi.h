// KESTOVA_API marks what the Kestova libraries export; every other symbol is hidden.
#ifndef KESTOVA_KESTOVAAPI_H
#define KESTOVA_KESTOVAAPI_H

#define KESTOVA_API __attribute__((visibility("default")))
// For what is declared inside an exported class and is not for callers.
#define KESTOVA_HIDDEN __attribute__((visibility("hidden")))

#endif
