// SPDX-License-Identifier: Apache-2.0
#include <foundation/storage/provider/ByteStream.hpp>

#include <gtest/gtest.h>
#include <boost/iostreams/copy.hpp>
#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/stream.hpp>
#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>

namespace foundation::storage::provider {

namespace {

class ThrowingStream : public ByteStream {
public:
    explicit ThrowingStream(std::function<void()> raise) : m_raise(std::move(raise)) {}

private:
    std::int64_t doRead(char* /*buffer*/, std::int64_t /*count*/) override { return m_raise(), 0; }
    std::int64_t doWrite(const char* /*data*/, std::int64_t /*count*/) override { return m_raise(), 0; }
    std::streampos doSeek(std::int64_t /*offset*/, std::ios_base::seekdir /*way*/) override { return m_raise(), 0; }
    void doClose() override { m_raise(); }

    std::function<void()> m_raise;
};

class DeniedError : public std::exception, public ErrorCoded {
public:
    ErrorCode getErrorCode() const noexcept override { return ErrorCode::PermissionDenied; }
    const char* what() const noexcept override { return "denied"; }
};

// "type: code: text" of what a call throws.
std::string thrownBy(const std::function<void()>& call) {
    try {
        call();
    } catch (const ByteStreamFailure& failure) {
        return failure.what();
    } catch (const Exception& failure) {
        return std::string("host: ") + failure.what();
    } catch (const boost::numeric::bad_numeric_cast&) {
        return "numeric";
    } catch (...) {
        return "something else";
    }
    return "nothing";
}

TEST(ByteStreamTest, WhateverAnImplementationThrowsBecomesTheOperationsFailure) {
    const auto recorded = [](auto cause) { return [cause] { throw std::make_exception_ptr(cause); }; };
    const struct {
        std::function<void()> raise;
        std::string expected;  // behind "reading failed" and so on, or the whole text
    } rows[] = {
        {[] { throw DeniedError(); }, " failed: PermissionDenied: denied"},
        {[] { throw std::runtime_error("broken"); }, " failed: Unknown: broken"},
        {[] { throw 42; }, " failed: Unknown"},
        {[] { throw std::exception_ptr(); }, " failed: Unknown"},
        {recorded(DeniedError()), " failed: PermissionDenied: denied"},
        {recorded(std::make_exception_ptr(DeniedError())), " failed: PermissionDenied: denied"},
        {recorded(42), " failed: Unknown"},
        {[] { throw Exception(ErrorCode::InUse, StorageIRI(u"/a")); }, "host: InUse: /a"},
        {recorded(Exception(ErrorCode::InUse, StorageIRI(u"/a"))), "host: InUse: /a"},
        {[] { throw ByteStreamSeekFailure(ErrorCode::NotFound); }, "seeking failed: NotFound"},
        {[] { boost::numeric_cast<unsigned char>(256); }, "numeric"},
        {[] {}, "nothing"},
    };
    for (const auto& row : rows) {
        ThrowingStream stream(row.raise);
        const std::pair<std::string, std::function<void()>> operations[] = {
            {"reading", [&] { stream.read(nullptr, 0); }},
            {"writing", [&] { stream.write(nullptr, 0); }},
            {"seeking", [&] { stream.seek(0, std::ios_base::beg); }},
            {"closing", [&] { stream.close(); }}};
        for (const auto& [action, call] : operations) {
            EXPECT_EQ(thrownBy(call), row.expected.front() == ' ' ? action + row.expected : row.expected);
        }
    }
}

// Bytes in memory.
class MemoryStream : public ByteStream {
public:
    MemoryStream(std::string& bytes, bool& isClosed) : m_bytes(bytes), m_isClosed(isClosed) {}

private:
    std::int64_t doRead(char* buffer, std::int64_t count) override {
        const auto size = std::min(static_cast<std::size_t>(count), m_bytes.size() - m_position);
        m_position += m_bytes.copy(buffer, size, m_position);
        return size == 0 ? -1 : static_cast<std::int64_t>(size);
    }
    std::int64_t doWrite(const char* data, std::int64_t count) override {
        m_bytes.append(data, static_cast<std::size_t>(count));
        return count;
    }
    std::streampos doSeek(std::int64_t offset, std::ios_base::seekdir /*way*/) override {
        m_position = static_cast<std::size_t>(offset);
        return offset;
    }
    void doClose() override { m_isClosed = true; }

    std::string& m_bytes;
    bool& m_isClosed;
    std::size_t m_position = 0;
};

TEST(ByteStreamDeviceTest, BytesTravelThroughBoostStreams) {
    std::string bytes;
    bool isClosed = false;
    {
        boost::iostreams::stream<ByteStreamDevice> sink{
            ByteStreamDevice(std::make_unique<MemoryStream>(bytes, isClosed))};
        sink << std::string(10'000, 'x') << "end";
        sink.close();
    }
    EXPECT_TRUE(isClosed);
    EXPECT_EQ(bytes, std::string(10'000, 'x') + "end");

    ByteStreamDevice source(std::make_unique<MemoryStream>(bytes, isClosed));
    EXPECT_EQ(source.seek(9'999, std::ios_base::beg), 9'999);
    std::string copied;
    isClosed = false;
    boost::iostreams::copy(source, boost::iostreams::back_inserter(copied));
    EXPECT_EQ(copied, "xend");
    EXPECT_TRUE(isClosed) << "copies of a device share the stream";
}

}  // namespace

}  // namespace foundation::storage::provider
