// The one mark that makes a name visible outside the kit.
#ifndef VXCAMKIT_EXPORT_H
#define VXCAMKIT_EXPORT_H

#define VXCAMKIT_EXPORT __attribute__((visibility("default")))

#endif
