// KESTOVA_API marks what the Kestova libraries export; every other symbol is hidden.
#ifndef KESTOVA_KESTOVAAPI_H
#define KESTOVA_KESTOVAAPI_H

#define KESTOVA_API __attribute__((visibility("default")))
// Hides what an exported class declares for itself.
#define KESTOVA_HIDDEN __attribute__((visibility("hidden")))

#endif
