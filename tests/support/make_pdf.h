// A PDF written by hand for tests: one page per rectangle, each a filled rectangle on a page of the
// given size, so that a test knows exactly where ink must land.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace inkweave::testing {

struct PdfRect {
  double X, Y, Width, Height;  // points from the bottom-left corner
  const char* Fill;            // PDF colour operator, e.g. "0 0 1 rg"
};

// A PDF of these objects, numbered from 1 (object 1 the catalog), with its cross-reference table.
inline std::string WritePdf(const std::vector<std::string>& objects) {
  std::string pdf = "%PDF-1.4\n";
  std::vector<std::size_t> offsets;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    offsets.push_back(pdf.size());
    pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const std::size_t xref = pdf.size();
  pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
  for (std::size_t offset : offsets) {
    char entry[24];
    std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
    pdf += entry;
  }
  pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
         std::to_string(xref) + "\n%%EOF\n";
  return pdf;
}

// A stream object holding these bytes.
inline std::string PdfStream(const std::string& bytes) {
  return "<< /Length " + std::to_string(bytes.size()) + " >>\nstream\n" + bytes + "\nendstream";
}

// A PDF with one page per rectangle, each page width x height points.
inline std::string MakePdf(double width, double height, const std::vector<PdfRect>& rects) {
  std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>", ""};
  std::string kids;
  for (std::size_t i = 0; i < rects.size(); ++i) {
    const PdfRect& r = rects[i];
    char content[160];
    std::snprintf(content, sizeof content, "%s %.2f %.2f %.2f %.2f re f", r.Fill, r.X, r.Y, r.Width, r.Height);
    char page[160];
    std::snprintf(page, sizeof page, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 %.0f %.0f] /Contents %zu 0 R >>",
                  width, height, objects.size() + 2);
    kids += std::to_string(objects.size() + 1) + " 0 R ";
    objects.push_back(page);
    objects.push_back(PdfStream(content));
  }
  objects[1] = "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(rects.size()) + " >>";
  return WritePdf(objects);
}

}  // namespace inkweave::testing
