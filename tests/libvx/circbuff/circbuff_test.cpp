#include "circbuff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

class CircBuff : public testing::Test
{
protected:
    explicit CircBuff(uint32_t size = 8) : maStorage(size)
    {
        EXPECT_EQ(InitCircBuff(&mRing, maStorage.data(), size), 0);
    }
    ~CircBuff() override { pthread_mutex_destroy(&mRing.Lock); }

    int Write(const std::string& text)
    {
        return WriteCircBuff(&mRing, text.data(), static_cast<int>(text.size()));
    }
    std::string Read(int n)
    {
        std::string text(static_cast<size_t>(n), '?');
        const int taken = ReadCircBuff(&mRing, text.data(), n);
        return text.substr(0, static_cast<size_t>(taken));
    }

    std::vector<unsigned char> maStorage;
    tsCircBuffHeader mRing{};
};

} // namespace

TEST_F(CircBuff, InitialisesItsHeader)
{
    EXPECT_EQ(mRing.Magic, 52223u);
    EXPECT_EQ(CIRC_BUFFER_MAGIC_NUMBER, 0xCBFF);
    EXPECT_EQ(mRing.Size, 8u);
    EXPECT_EQ(mRing.Start, maStorage.data());
    EXPECT_EQ(mRing.Read, maStorage.data());
    EXPECT_EQ(mRing.Write, maStorage.data());
    EXPECT_EQ(mRing.End, maStorage.data() + 8);
}

TEST_F(CircBuff, HoldsOneByteLessThanItsSize)
{
    EXPECT_EQ(Write("12345678"), 7);
    EXPECT_EQ(Write("x"), 0);
    EXPECT_EQ(Read(8), "1234567");
    EXPECT_EQ(Read(8), "");
}

TEST_F(CircBuff, WrapsAndKeepsTheOrder)
{
    EXPECT_EQ(Write("abcde"), 5);
    EXPECT_EQ(Read(5), "abcde");
    EXPECT_EQ(Write("123456"), 6);
    EXPECT_EQ(Read(6), "123456");
}

TEST_F(CircBuff, ReturnsWhatItHoldsWhenAskedForMore)
{
    EXPECT_EQ(Write("abc"), 3);
    EXPECT_EQ(Read(2), "ab");
    EXPECT_EQ(Read(2), "c");
}

TEST_F(CircBuff, FillsUpToTheReadPosition)
{
    EXPECT_EQ(Write("1234567"), 7);
    EXPECT_EQ(Read(3), "123");
    EXPECT_EQ(Write("abcdef"), 3);
    EXPECT_EQ(Write("g"), 0);
    EXPECT_EQ(Read(8), "4567abc");
}

TEST_F(CircBuff, WritesAndReadsNothingForLengthsBelowOne)
{
    char byte = 'x';
    EXPECT_EQ(WriteCircBuff(&mRing, &byte, 0), 0);
    EXPECT_EQ(WriteCircBuff(&mRing, &byte, -1), 0);
    EXPECT_EQ(Write("a"), 1);
    EXPECT_EQ(ReadCircBuff(&mRing, &byte, 0), 0);
    EXPECT_EQ(ReadCircBuff(&mRing, &byte, -1), 0);
    EXPECT_EQ(Read(1), "a");
}

TEST_F(CircBuff, ReadsNoByteFromAnEmptyRing)
{
    EXPECT_EQ(ReadCircByte(&mRing), -1);
}

TEST_F(CircBuff, ReadsBytesAsUnsigned)
{
    WriteCircByte(&mRing, 0xFF);
    WriteCircByte(&mRing, 0);
    EXPECT_EQ(ReadCircByte(&mRing), 255);
    EXPECT_EQ(ReadCircByte(&mRing), 0);
    EXPECT_EQ(ReadCircByte(&mRing), -1);
}

TEST_F(CircBuff, DropsAByteThatFindsNoRoom)
{
    for (unsigned char byte = 1; byte <= 9; ++byte) {
        WriteCircByte(&mRing, byte);
    }
    for (int byte = 1; byte <= 7; ++byte) {
        EXPECT_EQ(ReadCircByte(&mRing), byte);
    }
    EXPECT_EQ(ReadCircByte(&mRing), -1);
}

TEST_F(CircBuff, WrapsByteOperationsToo)
{
    for (int i = 0; i < 100; ++i) {
        WriteCircByte(&mRing, static_cast<unsigned char>(i));
        WriteCircByte(&mRing, static_cast<unsigned char>(i + 1));
        EXPECT_EQ(ReadCircByte(&mRing), i);
        EXPECT_EQ(ReadCircByte(&mRing), i + 1);
    }
}

TEST_F(CircBuff, ByteOperationsDoNotCheckTheMagic)
{
    mRing.Magic = 0;
    WriteCircByte(&mRing, 7);
    EXPECT_EQ(ReadCircByte(&mRing), 7);
}

TEST(CircBuffOfNoRoom, TakesNothing)
{
    for (uint32_t size : {0u, 1u}) {
        std::vector<unsigned char> storage(1);
        tsCircBuffHeader ring{};
        ASSERT_EQ(InitCircBuff(&ring, storage.data(), size), 0);
        EXPECT_EQ(WriteCircBuff(&ring, "ab", 2), 0);
        WriteCircByte(&ring, 1);
        EXPECT_EQ(ReadCircByte(&ring), -1);
        char byte = 0;
        EXPECT_EQ(ReadCircBuff(&ring, &byte, 1), 0);
        pthread_mutex_destroy(&ring.Lock);
    }
}

TEST(CircBuffDeath, NamesTheFailedAssertionOfTheWriter)
{
    tsCircBuffHeader ring{};
    EXPECT_DEATH(WriteCircBuff(&ring, "a", 1), "\\.\\./libvx/src/circbuff:.*WriteCircBuff.*"
                                               "Buffer_Header->Magic == CIRC_BUFFER_MAGIC_NUMBER");
}

TEST(CircBuffDeath, NamesTheFailedAssertionOfTheReader)
{
    tsCircBuffHeader ring{};
    char byte = 0;
    EXPECT_DEATH(ReadCircBuff(&ring, &byte, 1), "\\.\\./libvx/src/circbuff:.*ReadCircBuff.*"
                                                "Buffer_Header->Magic == CIRC_BUFFER_MAGIC_NUMBER");
}

TEST(CircBuffModel, AgreesWithAQueueOverRandomOperations)
{
    for (uint32_t size : {2u, 3u, 8u, 61u}) {
        std::mt19937 engine(size);
        std::vector<unsigned char> storage(size);
        tsCircBuffHeader ring{};
        ASSERT_EQ(InitCircBuff(&ring, storage.data(), size), 0);
        std::deque<unsigned char> queue;
        unsigned char next = 0;
        for (int i = 0; i < 20000; ++i) {
            const size_t n = engine() % (size + 3);
            if (engine() % 2 == 0) {
                std::vector<unsigned char> bytes(n);
                std::generate(bytes.begin(), bytes.end(), [&next] { return next++; });
                const size_t room = size - 1 - queue.size();
                const size_t expected = std::min(n, room);
                ASSERT_EQ(WriteCircBuff(&ring, bytes.data(), static_cast<int>(n)),
                          static_cast<int>(expected));
                queue.insert(queue.end(), bytes.begin(),
                             bytes.begin() + static_cast<std::ptrdiff_t>(expected));
            } else {
                std::vector<unsigned char> bytes(n);
                const size_t expected = std::min(n, queue.size());
                ASSERT_EQ(ReadCircBuff(&ring, bytes.data(), static_cast<int>(n)),
                          static_cast<int>(expected));
                for (size_t k = 0; k < expected; ++k) {
                    ASSERT_EQ(bytes[k], queue.front());
                    queue.pop_front();
                }
            }
        }
        pthread_mutex_destroy(&ring.Lock);
    }
}

TEST(CircBuffThreads, BytesCrossFromOneWriterToOneReader)
{
    std::vector<unsigned char> storage(16);
    tsCircBuffHeader ring{};
    ASSERT_EQ(InitCircBuff(&ring, storage.data(), 16), 0);
    std::atomic<int> taken{0};
    const int total = 20000;
    std::thread writer([&] {
        for (int sent = 0; sent < total;) {
            if (sent - taken.load() >= 15) {
                std::this_thread::yield();
                continue;
            }
            WriteCircByte(&ring, static_cast<unsigned char>(sent++));
        }
    });
    int wrong = 0;
    while (taken < total) {
        const int byte = ReadCircByte(&ring);
        if (byte < 0) {
            std::this_thread::yield();
            continue;
        }
        if (byte != (taken & 0xFF)) ++wrong;
        ++taken;
    }
    writer.join();
    EXPECT_EQ(wrong, 0);
    pthread_mutex_destroy(&ring.Lock);
}

TEST_F(CircBuff, BlockOperationsWaitForTheLockAndByteOperationsDoNot)
{
    EXPECT_EQ(Write("abc"), 3);
    std::atomic<int> done{0};
    ASSERT_EQ(pthread_mutex_lock(&mRing.Lock), 0);
    std::thread reader([&] { done += ReadCircBuff(&mRing, std::string(1, 0).data(), 1); });
    std::thread writer([&] { done += WriteCircBuff(&mRing, "e", 1); });
    WriteCircByte(&mRing, 'd');
    EXPECT_EQ(ReadCircByte(&mRing), 'a');
    std::this_thread::sleep_for(std::chrono::milliseconds(30)); // for whoever would not wait
    EXPECT_EQ(done, 0);
    pthread_mutex_unlock(&mRing.Lock);
    reader.join();
    writer.join();
    EXPECT_EQ(done, 2);
    EXPECT_EQ(Read(8).size(), 3u);
}

TEST(CircBuffThreads, BlocksOfManyWritersStayWhole)
{
    std::vector<unsigned char> storage(64);
    tsCircBuffHeader ring{};
    ASSERT_EQ(InitCircBuff(&ring, storage.data(), 64), 0);
    std::atomic<int> open{3};
    std::atomic<size_t> written{0};
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i) {
        writers.emplace_back([&, i] {
            const std::string block(5, static_cast<char>('a' + i));
            for (int n = 0; n < 500;) {
                const int done = WriteCircBuff(&ring, block.data(), 5);
                written += static_cast<size_t>(done);
                if (done == 0) std::this_thread::yield();
                n += done > 0 ? 1 : 0;
            }
            --open;
        });
    }
    std::string all;
    char bytes[16];
    for (;;) {
        const bool last = open == 0;
        const int n = ReadCircBuff(&ring, bytes, sizeof bytes);
        all.append(bytes, static_cast<size_t>(n));
        if (n == 0 && last) break;
        if (n == 0) std::this_thread::yield();
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(all.size(), written.load());
    EXPECT_EQ(all.find_first_not_of("abc"), std::string::npos);
    pthread_mutex_destroy(&ring.Lock);
}
