/* The one mark that makes a name visible outside the library, and the one name that the library
 * looks for outside itself. */
#ifndef VXEXPORT_H
#define VXEXPORT_H

#define VX_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* For a program, or a module that is loaded, to define: with any value but 0 there is no debug
 * daemon in it (tcDbgd.h), and so no port that the program has not asked for. The library looks for
 * it while it is being loaded, among the names that the program shows to it; this declaration shows
 * it also where names are hidden by default. */
extern __attribute__((visibility("default"))) const int VXNoDebugServices;

#ifdef __cplusplus
}
#endif

#endif
