-- For pandoc: a document becomes an HTML page whose links lead to the HTML pages of the other documents. Its title is
-- its first heading.
function Link(link)
    if not link.target:find("^%a+:") then
        link.target = link.target:gsub("%.md$", ".html"):gsub("%.md#", ".html#")
    end
    return link
end

function Pandoc(document)
    for _, block in ipairs(document.blocks) do
        if block.t == "Header" then
            document.meta.pagetitle = pandoc.utils.stringify(block)
            break
        end
    end
    return document
end
