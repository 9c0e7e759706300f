// Where log records go. Built directly, or from a URI by tcLog::BuildConsumer.
#ifndef TCLOGCONSUMER_H
#define TCLOGCONSUMER_H

#include "tcLog.h"
#include "vxexport.h"

#include <pthread.h>

#include <iosfwd>
#include <memory>
#include <string>

class HInetAddr;
class HSocket;

namespace vx {
class tcStreamLock;
}

// A sink of records.
// Threads: Output is called by any thread at any time, by several at once unless
// tcLog::mbSynchronizeLogs is set. A consumer must outlive its last delivery; one on the heap is
// best given to tcLog::RetireConsumer.
class VX_EXPORT tcLogConsumer
{
public:
    tcLogConsumer();
    virtual ~tcLogConsumer();
    tcLogConsumer(const tcLogConsumer&) = delete;
    tcLogConsumer& operator=(const tcLogConsumer&) = delete;

    virtual void Output(tcLogEvent const& event) = 0;

    virtual char const* TypeName() const = 0;

    // The settings, each behind a comma.
    virtual char const* Options() const;

    // Writes what is stored to `os`, or hands it to `out` when that is not null.
    virtual void Dump(std::ostream& os, tcLogConsumer* out) const;

    char const* Description() const { return msDescription.c_str(); }

protected:
    std::string msDescription;
    std::string msOptions;
};

// Discards records. One object serves the process (tcLog::NullConsumer()).
class VX_EXPORT tcLogNull : public tcLogConsumer
{
public:
    tcLogNull();
    ~tcLogNull() override;

    void Output(tcLogEvent const& event) override;
    char const* TypeName() const override;
};

// Writes each record as one line and flushes. On std::cout and std::cerr nobody waits for longer
// than 0.1 s: what cannot be printed then is left out and counted (tcLog::UnprintedTexts), and no
// signal is raised. A stream of the application's own may take its time, but others who log to it
// do not wait for longer either.
// Threads: lines for the same stream do not mix, whichever consumers write them.
class VX_EXPORT tcLogStream : public tcLogConsumer
{
public:
    // The stream stays the caller's and must live as long as this.
    explicit tcLogStream(std::ostream& os);
    ~tcLogStream() override;

    void Output(tcLogEvent const& event) override;
    char const* TypeName() const override;

private:
    std::ostream& mStream;
    std::shared_ptr<vx::tcStreamLock> mpLock; // one for each stream
};

// Appends to a file, one write for each line. A file that cannot be opened takes nothing, nor does
// a named pipe that nobody reads when it is opened. Lines that a pipe cannot take at once, since
// its reader is slow or gone, are lost. Owns: the file.
class VX_EXPORT tcLogFile : public tcLogStream
{
public:
    explicit tcLogFile(char const* path);
    ~tcLogFile() override;

    void Output(tcLogEvent const& event) override;
    char const* TypeName() const override;

private:
    class tcStream;

    tcLogFile(char const* path, std::unique_ptr<tcStream> stream);

    std::string msFileName;
    std::unique_ptr<tcStream> mpFileStream;
};

// Keeps the last records. Takes memory as they come, and keeps its place for those that there is
// none for.
// Locks: a mutex of its own.
class VX_EXPORT tcLogBuffer : public tcLogConsumer
{
public:
    static constexpr int nMaximumLines = (64 << 20) / sizeof(tcLogEvent);

    // `lines` is limited to 1 to nMaximumLines, which take 64 MiB.
    explicit tcLogBuffer(int lines);
    ~tcLogBuffer() override;

    void Output(tcLogEvent const& event) override;
    char const* TypeName() const override;

    // In the order of storage, which after the buffer has gone round is not that of time.
    void Dump(std::ostream& os, tcLogConsumer* out) const override;

private:
    tcLogEvent* Slot(int index, bool makesRoom) const;

    int mnLines;
    std::unique_ptr<std::unique_ptr<tcLogEvent[]>[]> maBlocks; // null: nothing has come there yet
    int mnNext;
    mutable pthread_mutex_t mhLock;
};

VX_EXPORT std::ostream& operator<<(std::ostream& os, tcLogBuffer const& buffer);

// Sends each record as one datagram: its line as text, or the 292 bytes of the record.
// Owns: its socket.
class VX_EXPORT tcLogUdp : public tcLogConsumer
{
public:
    static constexpr char const* mpDefaultAddr = "255.255.255.255";
    static constexpr unsigned short mnDefaultPort = 10101;

    // A null address means mpDefaultAddr. `interface`, when not null, is the local address (or the
    // name of a network device) to send from. Creating the socket prints where it is bound.
    tcLogUdp(char const* address, unsigned short port, bool binary,
             char const* interface = nullptr);
    ~tcLogUdp() override;

    void Output(tcLogEvent const& event) override;
    char const* TypeName() const override;

private:
    std::unique_ptr<HSocket> mpSocket;
    std::unique_ptr<HInetAddr> mpDestination;
    bool mbBinary;
};

#endif
