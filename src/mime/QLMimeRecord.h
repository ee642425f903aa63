#ifndef QLMAIL_MIME_QLMIMERECORD_H
#define QLMAIL_MIME_QLMIMERECORD_H

// One record of a format string: seventeen fields, each closed by a comma, in the order Visit
// walks them. Whatever writes or reads records walks the fields through Visit and does with
// each kind of field what its own rules say, so the layout is written down only here. A
// record is any type with the members named below.
class CQLMimeRecord {
public:
    // Calls fields.Number for the numbers, fields.Text for the texts and fields.Byte for the
    // encoding, which the record holds as a single byte.
    template <class Record, class Fields> static void Visit(Record& rec, Fields& fields) {
        fields.Number(rec.m_nHSO); // header of the message, in the first record
        fields.Number(rec.m_nHEO);
        fields.Number(rec.m_nTSO); // range of a multipart or of the message
        fields.Number(rec.m_nTEO);
        fields.Number(rec.m_nMSO); // the part's own header block
        fields.Number(rec.m_nMEO);
        fields.Number(rec.m_nBSO); // body
        fields.Number(rec.m_nBEO);
        fields.Text(rec.m_strDepth);
        fields.Number(rec.m_CT);
        fields.Number(rec.m_SubCT);
        fields.Byte(rec.m_Encoder);
        fields.Number(rec.m_nLineCnt);
        fields.Text(rec.m_strReserved);
        fields.Text(rec.m_strCharSet);
        fields.Text(rec.m_strCID);
        fields.Text(rec.m_strFilename);
    }
};

#endif
