// What a fault does to the bytes of one message.
#ifndef VXSIM_DAMAGE_H
#define VXSIM_DAMAGE_H

#include "faults.h"
#include "random.h"

#include <cstddef>
#include <cstdint>
#include <vector>

using tpSimBytes = std::vector<uint8_t>;

// Whether the kind is one that changes the message itself.
bool ChangesMessage(teSimFault kind);
// Of such a kind; a message that is shorter than a header by now is left alone.
void DamageMessage(const tsSimFault& fault, tcSimRandom& random, tpSimBytes* message);

// Random bytes without the magic.
tpSimBytes GarbageOf(int64_t bytes, tcSimRandom& random);

// Where a connection that ends within the message is cut: so many bytes still go out.
size_t CutOf(const tsSimFault& fault, const tpSimBytes& message, uint64_t firstByte);

#endif
