// Tables, masks, regions and sequences over a connection.
#include "SimClient.h"
#include "settings_support.h"

#include <algorithm>

TEST_F(SimSettings, KeepEightTablesForRowsAndEightForColumns)
{
    tsBinTableMsg table{};
    for (uint32_t index = 0; index < gnBinTables; ++index) {
        table.Index = index;
        table.TableLength = static_cast<uint16_t>(10 + index);
        table.Table[index] = 1;
        mtClient.SendCommand(cmdSetBinParam, table);
        table.TableLength = static_cast<uint16_t>(50 + index);
        mtClient.SendCommand(cmdSetHorBinParam, table);
        table.Table[index] = 0;
    }
    for (uint32_t index = 0; index < gnBinTables; ++index) {
        auto rows = mtClient.Ask<tsBinTableMsg>(cmdGetBinParam, {index});
        EXPECT_EQ(rows.Index, index);
        EXPECT_EQ(rows.TableLength, 10 + index);
        EXPECT_EQ(std::count(std::begin(rows.Table), std::end(rows.Table), 1), 1);
        EXPECT_EQ(rows.Table[index], 1);
        auto columns = mtClient.Ask<tsBinTableMsg>(cmdGetHorBinParam, {index});
        EXPECT_EQ(columns.TableLength, 50 + index);
        EXPECT_EQ(columns.Table[index], 1);
    }
    EXPECT_TRUE(Errors().empty());
    mtClient.SendCommand(cmdGetBinParam, {8});
    EXPECT_EQ(Errors(), Refused(cmdGetBinParam.id));
    table.Index = 8;
    table.TableLength = 1;
    mtClient.SendCommand(cmdSetBinParam, table);
    EXPECT_EQ(Errors(), Refused(cmdSetBinParam.id));
    table.Index = 0;
    table.TableLength = 61;
    mtClient.SendCommand(cmdSetHorBinParam, table);
    EXPECT_EQ(Errors(), Refused(cmdSetHorBinParam.id));
}

TEST_F(SimSettings, KeepTheMaskHalfRowByHalfRow)
{
    tsBinMaskMsg half{};
    for (uint16_t row : {0, 39}) {
        for (uint16_t side : {1, 2}) {
            half.Row = row;
            half.Half = side;
            half.Argument = 0x12345;
            std::fill(std::begin(half.HalfRow), std::end(half.HalfRow),
                      static_cast<uint8_t>(row + side));
            mtClient.SendCommand(cmdSetBinMaskParam, half);
        }
    }
    auto answer = mtClient.Ask<tsBinMaskMsg>(cmdGetBinMaskParam, {39, 2});
    EXPECT_EQ(answer.Row, 39);
    EXPECT_EQ(answer.Half, 2);
    EXPECT_EQ(answer.Argument & 0xFFFF, 0x2345u);
    EXPECT_EQ(answer.HalfRow[29], 41);
    EXPECT_EQ(answer.HalfRow[30], 0) << "half a row of 60 columns";
    EXPECT_EQ(mtClient.Ask<tsBinMaskMsg>(cmdGetBinMaskParam, {0, 1}).HalfRow[0], 1);
    EXPECT_EQ(mtClient.Ask<tsBinMaskMsg>(cmdGetBinMaskParam, {7, 1}).HalfRow[0], 0);
    mtClient.SendCommand(cmdGetBinMaskParam, {40, 1});
    EXPECT_EQ(Errors(), Refused(cmdGetBinMaskParam.id));
    half.Half = 3;
    mtClient.SendCommand(cmdSetBinMaskParam, half);
    EXPECT_EQ(Errors(), Refused(cmdSetBinMaskParam.id));
}

TEST_F(SimSettings, KeepRegionsAndSequences)
{
    tsSetAreaExMsg regions{};
    regions.RegionCount = 16;
    for (int i = 0; i < 16; ++i) {
        regions.FirstRows[i] = i;
        regions.FirstColumns[i] = 2 * i;
        regions.Heights[i] = 3;
        regions.Widths[i] = 4 + i;
    }
    mtClient.SendCommand(cmdSetAreaEx, regions);
    auto read = mtClient.Ask<tsAreaExMsg>(cmdGetAreaEx);
    EXPECT_EQ(read.First, 0);
    EXPECT_EQ(read.RegionCount, 16);
    EXPECT_EQ(+read.FirstRows[15], 15);
    EXPECT_EQ(+read.FirstColumns[15], 30);
    EXPECT_EQ(+read.Heights[15], 3);
    EXPECT_EQ(+read.Widths[15], 19);
    tsSetBinningSequenceMsg sequence{};
    sequence.Entries = 16;
    for (uint8_t i = 0; i < 16; ++i) {
        sequence.Vertical[i] = i % 8;
        sequence.Horizontal[i] = 7 - i % 8;
    }
    mtClient.SendCommand(cmdSetBinningSequence, sequence);
    auto entries = mtClient.Ask<tsBinningSequenceMsg>(cmdGetBinningSequence);
    EXPECT_EQ(entries.Entries, 16);
    EXPECT_EQ(entries.Vertical[7], 7);
    EXPECT_EQ(entries.Horizontal[0], 7);
    EXPECT_TRUE(Errors().empty());
    sequence.Vertical[3] = 8;
    mtClient.SendCommand(cmdSetBinningSequence, sequence);
    EXPECT_EQ(Errors(), Refused(cmdSetBinningSequence.id));
}
