#include <tarvo/platform/kernel/linux/errortexts.h>

#include <algorithm>
#include <iterator>

namespace tarvo::kernel
{
namespace
{
struct ErrorText
{
    DWORD code;
    std::u16string_view text;
};

/// By ascending code. The meanings of the codes are those of the Windows headers (winerror.h).
constexpr ErrorText errorTexts[] = {
    {0, u"No error."},
    {1, u"This function is not supported."},
    {2, u"There is no file of this name."},
    {3, u"There is no folder of this path."},
    {4, u"No further file can be opened."},
    {5, u"Access is refused."},
    {6, u"The handle is not valid."},
    {7, u"The records that describe the memory are damaged."},
    {8, u"There is not enough memory for this request."},
    {9, u"A memory block has a wrong address."},
    {10, u"The environment is not correct."},
    {11, u"The format is not correct."},
    {12, u"The kind of access asked for is not valid."},
    {13, u"The data is not valid."},
    {14, u"There is no memory left to finish this operation."},
    {15, u"There is no such drive."},
    {16, u"The current folder cannot be removed."},
    {17, u"The file cannot be moved to another drive."},
    {18, u"There are no more files."},
    {19, u"The medium is protected from writing."},
    {20, u"There is no such device."},
    {21, u"The device is not ready."},
    {22, u"The device does not know the command."},
    {23, u"The data is damaged: its checksum is wrong."},
    {24, u"The length of the command is not correct."},
    {25, u"The drive cannot find the place on the medium."},
    {26, u"The medium has no known format."},
    {27, u"The sector was not found."},
    {28, u"The printer has no paper."},
    {29, u"Writing to the device failed."},
    {30, u"Reading from the device failed."},
    {31, u"The device does not work."},
    {32, u"The file is in use elsewhere."},
    {33, u"A part of the file is locked elsewhere."},
    {38, u"The end of the file was reached."},
    {39, u"The disk is full."},
    {50, u"The request is not supported."},
    {53, u"The network path was not found."},
    {80, u"The file exists already."},
    {87, u"A parameter is not correct."},
    {109, u"The other end of the pipe is closed."},
    {110, u"The file or device cannot be opened."},
    {112, u"There is not enough room on the disk."},
    {120, u"This system does not have the function."},
    {122, u"The buffer is too small."},
    {123, u"The name is not valid."},
    {126, u"The library was not found."},
    {127, u"The library has no such entry."},
    {145, u"The folder is not empty."},
    {170, u"The resource is in use."},
    {183, u"An object of this name exists already."},
    {193, u"%1 is not a program or library of this system."},
    {206, u"The name is too long."},
    {234, u"There is more data."},
    {258, u"The time for the wait is up."},
    {259, u"There is no more data."},
    {288, u"A lock was given back by a thread that does not hold it."},
    {298, u"The semaphore cannot take so many units."},
    {299, u"Only a part of the memory was read or written."},
    {317, u"There is no text for this number."},
    {487, u"The address is not valid."},
    {534, u"The result is too large."},
    {995, u"The operation was ended because its thread ends or was asked to."},
    {996, u"The operation has not been completed."},
    {997, u"The operation is still running."},
    {998, u"The memory cannot be reached."},
    {1114, u"The library refused to start."},
    {1168, u"The element was not found."},
    {1223, u"The user ended the operation."},
    {1400, u"The window handle is not valid."},
    {1450, u"The system lacks the resources for this operation."},
    {1455, u"The paging file is too small."},
    {1460, u"The operation took longer than the time it was given."},
};

static_assert(std::ranges::is_sorted(errorTexts, {}, &ErrorText::code));
} // namespace

std::u16string_view errorText(DWORD code) noexcept
{
    const ErrorText* const found = std::ranges::lower_bound(errorTexts, code, {}, &ErrorText::code);
    return found != std::end(errorTexts) && found->code == code ? found->text : std::u16string_view();
}
} // namespace tarvo::kernel
