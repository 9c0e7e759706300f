// A consumer that throws.
#ifndef EMIT_SUPPORT_H
#define EMIT_SUPPORT_H

#include "tcLogConsumer.h"

#include <string>

class tcThrowing : public tcLogConsumer
{
public:
    void Output(tcLogEvent const&) override { throw std::string("broken"); }
    char const* TypeName() const override { return "THROWING"; }
};

#endif
