// From a C function to the camera's operation.
#ifndef FORWARD_H
#define FORWARD_H

#include "tcVXCamera.h"

// Calls one operation of the camera with that handle; the lookup and its -3 exist only here.
template <class... Parameters, class... Arguments>
int Forward(int handle, int (tcVXCamera::*operation)(Parameters...), Arguments... arguments)
{
    const tcVXCamera::tcHold camera(handle);
    return camera ? ((*camera).*operation)(arguments...) : eVXNoCamera;
}

#endif
