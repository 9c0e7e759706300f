// Words of the wire and the variables of callers, private to the library.
#ifndef WORDS_H
#define WORDS_H

#include "tcVXCamera.h"

// Stores a result where the caller wants it, in the variable's whole width.
template <class Variable, class Value>
void Give(Variable* variable, Value value)
{
    if (variable != nullptr) *variable = static_cast<Variable>(value);
}

// The wire's 32 bits of a caller's number.
template <class Number>
uint32_t Word(Number number)
{
    return static_cast<uint32_t>(number);
}

// Asks for one 32-bit word and hands it out at the width of the caller's variable.
template <class Variable>
int tcVXCamera::AskWord(const tsCommand<tsNoPayload>& command, Variable* variable)
{
    uint32_t word = 0;
    const int result = Ask(command, &word);
    if (result == eVXOk) Give(variable, word);
    return result;
}

#endif
