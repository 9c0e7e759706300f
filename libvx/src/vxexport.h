/* The one mark that makes a name visible outside the library. */
#ifndef VXEXPORT_H
#define VXEXPORT_H

#define VX_EXPORT __attribute__((visibility("default")))

#endif
