#!/usr/bin/env python3
# Writes the web pages of this folder that are not UTF-8. Run from anywhere: python3 make_fixtures.py
#
# The pages are written here as text and saved in the charset each declares (or, for the lying
# page, in another one). The UTF-8 pages of the folder are written by hand; every page's expected
# answer is in NAME.expect beside it.

import os

HERE = os.path.dirname(os.path.abspath(__file__))

PAGES = [
    ("cafe-windows-1252.html", "cp1252", "", """<!DOCTYPE html PUBLIC "-//W3C//DTD HTML 4.01//EN">
<html>
<head>
<meta http-equiv="Content-Type" content="text/html; charset=windows-1252">
<title>Café am Fluss &ndash; Speisekarte</title>
<meta name="Author" content="Greta Brandt">
<meta name="keywords" content="Kaffee, Kuchen">
<meta name="KEYWORDS" content="Fähre">
<meta name="description" content="Was es im Café am Anleger gibt, „frisch“ jeden Morgen.">
</head>
<body>
<h1>Speisekarte</h1>
<p>Unser Apfelkuchen kostet 3,50 €. Dazu gibt es Kaffee… oder Tee.</p>
<p>„Frühstück bis elf“ – so steht es auf der Tafel am Anleger.</p>
<table>
<tr><td>Käsebrot</td><td>4 €</td></tr>
<tr><td>Fischbrötchen</td><td>5 €</td></tr>
</table>
<p>Geöffnet, solange die F&auml;hre f&auml;hrt &#8211; im Winter nur am Wochenende.</p>
<p>Stra&szlig;e am Fluss 3</p>
</body>
</html>
"""),
    ("russian-windows-1251.html", "cp1251", "", """<html>
<head>
<meta http-equiv="content-type" content="text/html; charset=windows-1251" />
<title>Паром через реку</title>
<meta name="description" content="Расписание парома и цены на билеты." />
<meta name="author" content="Анна Петрова" />
</head>
<body>
<h2>Расписание</h2>
<p>Паром ходит с апреля по октябрь, когда сойдёт лёд.</p>
<p>Каждое утро в семь часов капитан звонит в колокол.</p>
<ul><li>Взрослые: 100 рублей</li><li>Дети: бесплатно</li></ul>
</body>
</html>
"""),
    ("japanese-shift_jis.html", "shift_jis", "", """<html>
<head>
<meta charset="Shift_JIS">
<title>渡し船の時刻表</title>
<meta name="keywords" content="渡し船,時刻表,料金">
<script>var 時刻 = ["七時", "十二時"]; function showTimetableNow(){document.write(時刻.join("、"));}</script>
</head>
<body>
<h1>渡し船</h1>
<p>渡し船は四月から十月まで動きます。</p>
<p>毎朝七時に船長が鐘を鳴らします。料金は二百円です。</p>
</body>
</html>
"""),
    ("lying-utf8-is-latin1.html", "latin-1", "", """<html>
<head>
<meta charset="utf-8">
<title>Le bac de l'été</title>
</head>
<body>
<p>Cette page se dit UTF-8, mais ses octets sont en ISO Latin 1 : été, hôtel, naïf.</p>
</body>
</html>
"""),
    ("greek-utf-16.html", "utf-16-le", "\ufeff", """<html>
<head>
<title>Το πορθμείο</title>
<meta name="description" content="Ώρες και τιμές">
</head>
<body>
<p>Το πορθμείο ξεκινά τον Απρίλιο.</p>
<p>Ένα εισιτήριο κοστίζει δύο ευρώ.</p>
</body>
</html>
"""),
    ("czech-windows-1250.html", "cp1250", "", """<?xml version="1.0" encoding="windows-1250"?>
<!DOCTYPE html PUBLIC "-//W3C//DTD XHTML 1.0 Strict//EN" "http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd">
<html xmlns="http://www.w3.org/1999/xhtml">
<head>
<title>Přívoz přes řeku</title>
<meta name="keywords" content="přívoz, řeka, jízdní řád" />
</head>
<body>
<p>Přívoz začíná jezdit v dubnu, když roztaje led.</p>
<p>Jízdenka stojí dvacet korun; děti jezdí zdarma.</p>
</body>
</html>
"""),
]


def main():
    for name, codec, mark, page in PAGES:
        with open(os.path.join(HERE, name), "wb") as out:
            out.write((mark + page).encode(codec))


if __name__ == "__main__":
    main()
