// The document is read twice: the header counts the pages and says how all of them are coded, and what has
// too many or too large ones shall be refused before anything is written.
#include "document/fax_maker.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "document/page_coder.h"
#include "document/page_fitter.h"
#include "faxfile/fax_params.h"

namespace faxtray {

// Completes `facts` by what the pages are like. Returns "" or why they are refused.
static std::string survey(page_source *source, const fax_wishes_t &wishes, fax_facts_t *facts)
{
    page_form_t form;
    page_source::step_t step;
    facts->vr = 0;
    while ((step = source->next(&form)) == page_source::PAGE) {
        if (++facts->pages > most_read_pages)
            return "more than " + std::to_string(most_read_pages) + " pages";
        facts->df = facts->pages == 1 || facts->df == form.df ? form.df : DF_MMR;
        facts->vr = std::max(facts->vr, natural_vr(form));
    }
    if (step == page_source::FAILED)
        return source->why();
    if (facts->pages == 0)
        return "no pages";
    if (wishes.df >= 0 || facts->df < 0)
        facts->df = wishes.df >= 0 ? wishes.df : DF_MMR;
    if (wishes.vr >= 0)
        facts->vr = wishes.vr;
    return source->rewind() ? "" : source->why();
}

// Makes the coded page, by way of a bitmap. "" or why not.
static std::string draw_page(page_source *source, const page_form_t &form, const page_fit_t &fit,
                             const fax_facts_t &facts, std::vector<unsigned char> *coded)
{
    page_fitter fitter(form, fit);
    if (!source->rows([&](const unsigned char *row) {
            fitter.take(row);
            return true;
        }))
        return source->why();
    return code_image(fitter.image(), facts.df, facts.vr, coded) ? "" : "no memory for a page";
}

// Makes the next coded page of the fax. "" or why not.
static std::string make_page(page_source *source, const fax_facts_t &facts, std::vector<unsigned char> *coded)
{
    page_form_t form;
    if (source->next(&form) != page_source::PAGE)
        return "it has changed while it was read";
    const page_fit_t fit = fit_page(form, facts.vr);
    if (fit.height > most_lines)
        return "it would become a page of " + std::to_string(fit.height) + " lines";
    if (form.df < 0 || fit.scaled)
        return draw_page(source, form, fit, facts, coded);
    if (!source->coded(coded))
        return source->why();
    if (form.df == facts.df && complete_strip(coded, facts.df, form.height))
        return "";
    return recode_strip(std::move(*coded), form.df, facts.df, facts.vr, form.height, coded)
               ? ""
               : "no memory for a page";
}

bool make_fax(page_source *source, const fax_wishes_t &wishes, int fd, const ending_signals_held &signals,
              long *pages, reason_t *why)
{
    fax_facts_t facts;
    facts.call = wishes.call;
    facts.others = wishes.others;
    *why = {survey(source, wishes, &facts)};
    if (!why->text.empty())
        return false;
    if (!write_fax_start(fd, facts)) {
        *why = {"its header can't be written", true};
        return false;
    }
    std::vector<unsigned char> coded;
    for (*pages = 0; *pages < facts.pages; ++*pages) {
        if (signals.one_came())
            *why = {"interrupted", true};
        else if (std::string text = make_page(source, facts, &coded); !text.empty())
            *why = {"page " + std::to_string(*pages + 1) + ": " + text};
        else if (!write_fax_page(fd, coded))
            *why = {std::string("the fax can't be written: ") + strerror(errno), true};
        if (!why->text.empty())
            return false;
    }
    return true;
}

}  // namespace faxtray
